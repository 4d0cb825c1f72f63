#pragma once
// Temporary plugin folders for the loading tests. Each test copies the libraries it
// needs into a folder of its own: a copy is a new file, so the system loads it as a new
// library whose statics start empty, whatever other tests loaded before.
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "zemengine/plugins/BasePluginManager.h"

namespace ZemEngine::PluginTest
{
    inline std::string PluginFileName(const std::string& name)
    {
        return "PLUGIN_" + name + "_DLL_" + BasePluginManager::GetConfigName() + "_64.so";
    }

    class TempPluginFolder
    {
    public:
        TempPluginFolder()
        {
            char pattern[] = "/tmp/zemplugins.XXXXXX";
            const char* made = mkdtemp(pattern);
            m_sRoot = made ? std::string(made) + "/" : std::string();
            std::filesystem::create_directories(Folder());
        }
        ~TempPluginFolder()
        {
            std::error_code ignored;
            if (!m_sRoot.empty()) std::filesystem::remove_all(m_sRoot, ignored);
        }
        TempPluginFolder(const TempPluginFolder&) = delete;
        TempPluginFolder& operator=(const TempPluginFolder&) = delete;

        // What LoadPlugins is given: the folder scanned is Root() + "Plugins".
        const std::string& Root() const { return m_sRoot; }
        std::string Folder() const { return m_sRoot + "Plugins"; }
        std::string PathOf(const std::string& file) const { return Folder() + "/" + file; }

        // Copies a built library into the folder under `file`.
        void AddLibrary(const std::string& builtDir, const std::string& builtName, const std::string& file) const
        {
            std::filesystem::copy_file(builtDir + "/" + PluginFileName(builtName), PathOf(file),
                                       std::filesystem::copy_options::overwrite_existing);
        }
        void AddFile(const std::string& file, const std::string& content) const
        {
            std::ofstream(PathOf(file), std::ios::binary) << content;
        }

    private:
        std::string m_sRoot;
    };
}

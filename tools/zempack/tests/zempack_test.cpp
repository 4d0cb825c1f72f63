// Runs the built zempack end to end on scratch folders.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/wait.h>

namespace
{
    struct Result
    {
        int status;
        std::string out;
        std::string err;
    };

    std::string Slurp(const std::string& path)
    {
        std::ifstream in(path, std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }

    void Spit(const std::string& path, const std::string& bytes)
    {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
    }

    class ZempackTest : public ::testing::Test
    {
    protected:
        void SetUp() override
        {
            char pattern[] = "/tmp/zempack_XXXXXX";
            ASSERT_NE(mkdtemp(pattern), nullptr);
            m_kDir = pattern;
            Spit(m_kDir + "/Data/a.txt", "alpha");
            Spit(m_kDir + "/Data/sub/b.bin", std::string("\0\1\2", 3));
            Spit(m_kDir + "/Data/.hidden", "no");
        }
        void TearDown() override { std::filesystem::remove_all(m_kDir); }

        Result Run(const std::string& args)
        {
            const std::string out = m_kDir + "/stdout";
            const std::string err = m_kDir + "/stderr";
            const std::string command = std::string(ZEMPACK_BINARY) + " " + args + " >" + out + " 2>" + err;
            const int raw = std::system(command.c_str());
            return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp(out), Slurp(err)};
        }
        std::string P(const std::string& rel) const { return m_kDir + "/" + rel; }

        std::string m_kDir;
    };
}

TEST_F(ZempackTest, CreateListCatExtract)
{
    Result r = Run("create " + P("Data") + " " + P("list.txt") + " " + P("out.pak"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("packed 2 files"), std::string::npos) << r.out;
    EXPECT_EQ(Slurp(P("list.txt")), "a.txt\nsub/b.bin\n");

    r = Run("list " + P("out.pak"));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "5\ta.txt\n3\tsub/b.bin\n");

    r = Run("cat " + P("out.pak") + " sub/b.bin");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, std::string("\0\1\2", 3)) << "only the file's bytes reach stdout";
    r = Run("cat " + P("out.pak") + " Data/a.txt");
    EXPECT_EQ(r.out, "alpha");

    r = Run("extract " + P("out.pak") + " " + P("x"));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(Slurp(P("x/Data/a.txt")), "alpha");
    EXPECT_EQ(Slurp(P("x/Data/sub/b.bin")), std::string("\0\1\2", 3));
}

TEST_F(ZempackTest, OrderFileAndSwappedPackages)
{
    Spit(P("order.txt"), "sub/b.bin\n");
    Result r = Run("create " + P("Data") + " " + P("l") + " " + P("o.pak") + " --order " + P("order.txt") + " --swap");
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string bytes = Slurp(P("o.pak"));
    ASSERT_GE(bytes.size(), 4u);
    EXPECT_EQ(bytes.substr(0, 4), std::string("\x01\x43\x98\x55", 4)) << "swapped magic";
    r = Run("list " + P("o.pak"));
    EXPECT_EQ(r.out, "3\tsub/b.bin\n5\ta.txt\n");
}

// Every failure: a message on stderr, nothing on stdout, a non-zero status.
TEST_F(ZempackTest, FailuresSayWhy)
{
    Spit(P("junk.pak"), std::string(300, 'j'));
    Run("create " + P("Data") + " " + P("l") + " " + P("ok.pak"));
    struct Case
    {
        std::string args;
        int status;
        const char* message;
    };
    const Case cases[] = {
        {"", 2, "no command given"},
        {"frobnicate", 2, "unknown command"},
        {"create " + P("Data") + " " + P("l"), 2, "create takes ROOT LIST OUT.pak"},
        {"create " + P("Data") + " " + P("l") + " " + P("o.pak") + " --order", 2, "--order needs a file"},
        {"create " + P("nothere") + " " + P("l") + " " + P("o.pak"), 1, "ROOT is not a folder"},
        {"create " + P("Data") + " " + P("l") + " " + P("o.pak") + " --order " + P("none"), 1, "cannot read the order file"},
        {"create " + P("Data") + " " + P("l") + " " + P("no/such/dir/o.pak"), 1, "could not create"},
        {"list", 2, "list takes PACKAGE"},
        {"list " + P("missing.pak"), 1, "cannot open"},
        {"list " + P("junk.pak"), 1, "is not a valid package"},
        {"list " + P("Data"), 1, "is a folder"},
        {"cat " + P("ok.pak") + " nothere.txt", 1, "has no file named nothere.txt"},
        {"extract " + P("junk.pak") + " " + P("x"), 1, "bad magic"},
    };
    for (const Case& c : cases)
    {
        const Result r = Run(c.args);
        EXPECT_EQ(r.status, c.status) << c.args;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.args << "\n" << r.err;
        EXPECT_EQ(r.out, "") << c.args;
    }
    EXPECT_FALSE(std::filesystem::exists(P("no/such/dir/o.pak")));
}


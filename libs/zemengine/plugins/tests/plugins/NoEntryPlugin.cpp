// A library that has the plugin file name but neither entry point.
extern "C" int NotAPluginEntry() { return 1; }

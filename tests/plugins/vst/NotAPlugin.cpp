// A shared library that sits in a plug-in folder without being a plug-in.

extern "C" __attribute__((visibility("default"))) int notAPluginVersion()
{
    return 1;
}

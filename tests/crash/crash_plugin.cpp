// A module of the host's own, loaded wherever the system puts it, which fails when asked.
#ifdef _WIN32
#define PLUGIN_EXPORT extern "C" __declspec(dllexport)
#else
#define PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace {
volatile int* volatile g_nowhere = nullptr;
}  // namespace

PLUGIN_EXPORT __attribute__((noinline, no_sanitize("undefined"))) void PluginCrash() {
  *g_nowhere = 7;
}

PLUGIN_EXPORT __attribute__((noinline)) void PluginCaller(void (*crash)()) {
  crash();
  *g_nowhere = 8;  // keeps the call from becoming a jump
}

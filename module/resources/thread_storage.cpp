// The DLL has no thread-local storage. The compiler's runtime would give it an empty one all the same, and Windows does
// not let a module with that turn off the calls for every thread that starts and ends; so the runtime finds its hook
// taken.
extern "C" const void* const __dyn_tls_init_callback = nullptr;

// What the address sanitizer of every target asks for. Freed memory is kept for a shorter time than by itself, and
// printf's arguments are not checked: inputs take half the time, and programs a tenth of the memory.
extern "C" __attribute__((used, visibility("default"))) const char *__asan_default_options();

const char *__asan_default_options() {
  return "malloc_context_size=6:quarantine_size_mb=16:thread_local_quarantine_size_kb=64:check_printf=0";
}

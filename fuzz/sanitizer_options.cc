// Every UBSan finding stops the fuzzer, as an ASan finding does, so that
// undefined behaviour is reported as a crash with an input to reproduce it.
extern "C" const char* __ubsan_default_options() {
  return "halt_on_error=1:print_stacktrace=1";
}

// Only for builds with the address sanitizer: names the two buffers that leak on purpose, so that the leak
// checker reports every other one.
extern "C" const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions() {
  return "leak:CaptureTurned\n"
         "leak:CameraSelfTest\n";
}

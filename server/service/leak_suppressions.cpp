// For builds with the address sanitizer only: the leak checker is told by name of the two buffers that stay
// allocated on purpose, so that it reports every other.
extern "C" const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions() {
  return "leak:CaptureTurned\n"
         "leak:CameraSelfTest\n";
}

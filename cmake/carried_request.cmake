# Run as a script: writes to OUTPUT the bytes of OBJECT, or none without one, as C++.
set(bytes "")
if(OBJECT)
  file(READ ${OBJECT} bytes HEX)
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
endif()
file(WRITE ${OUTPUT} "#include \"simulator/phone/emulator.h\"\n
namespace simulator {\nstatic constexpr unsigned char BYTES[] = {${bytes} 0};
std::string_view CarriedRequestObject() {
  return {reinterpret_cast<const char*>(BYTES), sizeof BYTES - 1};
}
}  // namespace simulator\n")

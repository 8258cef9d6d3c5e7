# add_server_library(NAME sources... [FAST sources...] [LINK libraries...]): the library of one of the server's
# folders. Sources are built for size, since flash and memory on the phone are small and nearly all of this code waits
# for devices. The few that work through pixels, samples or bytes are listed after FAST and are built for speed. The
# server uses neither exceptions nor run-time types: nothing unwinds on the phone, and the tables take room.
function(add_server_library name)
  cmake_parse_arguments(PARSE_ARGV 1 library "" "" "FAST;LINK")
  add_folder_library(${name} ${library_UNPARSED_ARGUMENTS} ${library_FAST} LINK ${library_LINK})
  target_compile_options(${name} PRIVATE -fno-exceptions -fno-rtti -fno-unwind-tables -fno-asynchronous-unwind-tables
                                         -ffunction-sections -fdata-sections -Wsign-conversion
                                         -Wcast-align=strict)
  if(NOT SANITIZE)
    set_source_files_properties(${library_UNPARSED_ARGUMENTS} PROPERTIES COMPILE_OPTIONS -Os)
  endif()
endfunction()

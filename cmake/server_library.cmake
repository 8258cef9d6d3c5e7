# add_server_library(NAME sources... [LINK libraries...]): one library for one of the server's folders.
# The server knows neither exceptions nor run-time types: nothing unwinds on the phone, and the tables cost room.
function(add_server_library name)
  cmake_parse_arguments(PARSE_ARGV 1 library "" "" "LINK")
  add_library(${name} STATIC ${library_UNPARSED_ARGUMENTS})
  target_compile_options(${name} PRIVATE -fno-exceptions -fno-rtti -fno-asynchronous-unwind-tables
                                         -ffunction-sections -fdata-sections -Wsign-conversion)
  target_link_libraries(${name} PUBLIC ${library_LINK})
endfunction()

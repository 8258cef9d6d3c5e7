# add_folder_library(NAME [sources...] [LINK libraries...]): the library of the folder that calls it, or without
# sources a library of headers. Its sources see the headers of this folder and of the libraries that it links, and no
# others: each folder has an include directory of its own, with nothing in it but a link to the folder. So an include
# that points up is not found, and the layout cannot be bent unseen.
function(add_folder_library name)
  cmake_parse_arguments(PARSE_ARGV 1 library "" "" "LINK")
  if(library_UNPARSED_ARGUMENTS)
    add_library(${name} STATIC ${library_UNPARSED_ARGUMENTS})
    set(scope PUBLIC)
  else()
    add_library(${name} INTERFACE)
    set(scope INTERFACE)
  endif()
  expose_folder(${name} ${scope})
  target_link_libraries(${name} ${scope} ${library_LINK})
endfunction()

# Lets a target, and what links it, include the files of the folder that calls it: "server/flash/otp.h".
function(expose_folder target scope)
  file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set(directory ${PROJECT_BINARY_DIR}/include/${target})
  get_filename_component(parent ${directory}/${folder} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${directory}/${folder} SYMBOLIC)
  target_include_directories(${target} ${scope} ${directory})
endfunction()

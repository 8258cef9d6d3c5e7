# add_assets(VARIABLE file...): makes a source that holds the files' contents and sets VARIABLE to its name. The source
# defines web::Assets VARIABLE(), whose paths are the files' names. Called as a script, it writes that source.
function(add_assets variable)
  set(source ${CMAKE_CURRENT_BINARY_DIR}/${variable}.cpp)
  set(files "")
  foreach(file IN LISTS ARGN)
    cmake_path(ABSOLUTE_PATH file BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    list(APPEND files ${file})
  endforeach()
  add_custom_command(OUTPUT ${source}
    COMMAND ${CMAKE_COMMAND} -DNAME=${variable} "-DFILES=${files}" -DSOURCE=${source}
            -P ${PROJECT_SOURCE_DIR}/cmake/add_assets.cmake
    DEPENDS ${files} ${PROJECT_SOURCE_DIR}/cmake/add_assets.cmake VERBATIM)
  set(${variable} ${source} PARENT_SCOPE)
endfunction()

if(CMAKE_SCRIPT_MODE_FILE)
  set(type_of_html "text/html; charset=utf-8")
  set(type_of_css "text/css; charset=utf-8")
  set(type_of_js "text/javascript; charset=utf-8")
  set(type_of_svg "image/svg+xml")
  set(rows "")
  foreach(file IN LISTS FILES)
    get_filename_component(name ${file} NAME)
    string(REGEX REPLACE ".*\\." "" ending ${name})
    file(READ ${file} content HEX)
    string(REGEX REPLACE "(..)" "\\\\x\\1" content "${content}")
    # Pieces, since a compiler promises no more than 64 KiB for one literal's line.
    string(REGEX REPLACE "(................................................................................)" "\\1\"\n\"" content "${content}")
    file(SIZE ${file} size)
    string(APPEND rows "    {\"${name}\", \"${type_of_${ending}}\", std::string_view(\n\"${content}\", ${size})},\n")
  endforeach()
  file(WRITE ${SOURCE} "#include \"web/assets.h\"\n
namespace web {\nAssets ${NAME}() {\n  static constexpr Asset ALL[] = {\n${rows}  };\n  return ALL;\n}\n}  // namespace web\n")
endif()

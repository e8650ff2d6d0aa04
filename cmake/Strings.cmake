# One source of strings for both targets: the resource compiler reads strings.rc, and elsewhere a table is made of it.
set(string_source ${PROJECT_SOURCE_DIR}/Protocol/resources/strings.rc)
if(WIN32)
  enable_language(RC)
  set(CMAKE_RC_FLAGS "${CMAKE_RC_FLAGS} -c 65001")
  set(string_table_sources ${string_source})
else()
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  set(string_table ${PROJECT_BINARY_DIR}/generated/string_table.cpp)
  add_custom_command(OUTPUT ${string_table}
    COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/Protocol/resources/make_string_table.py ${string_source} ${string_table}
    DEPENDS ${string_source} ${PROJECT_SOURCE_DIR}/Protocol/resources/make_string_table.py
    COMMENT "Making the string table")
  set(string_table_sources ${string_table})
endif()

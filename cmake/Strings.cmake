# One source of strings and of the registry script for both targets: the resource compiler reads them, and elsewhere C++ is
# made of them. `string_table_sources` belong to whatever loads strings, `module_resources` to the module alone.
set(resource_folder ${PROJECT_SOURCE_DIR}/Protocol/resources)
set(string_source ${resource_folder}/strings.rc)
set(script_source ${resource_folder}/module.rgs)
set(generated_folder ${PROJECT_BINARY_DIR}/generated)
if(WIN32)
  enable_language(RC)
  set(CMAKE_RC_FLAGS "${CMAKE_RC_FLAGS} -c 65001")
  set(string_table_sources ${string_source})
  configure_file(${resource_folder}/version.rc.in ${generated_folder}/version.rc @ONLY)
  set(module_resources ${resource_folder}/module.rc)
  set_source_files_properties(${module_resources} PROPERTIES OBJECT_DEPENDS "${script_source};${generated_folder}/version.rc"
    INCLUDE_DIRECTORIES "${resource_folder};${generated_folder}")
else()
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  set(string_table ${generated_folder}/string_table.cpp)
  add_custom_command(OUTPUT ${string_table}
    COMMAND ${Python3_EXECUTABLE} ${resource_folder}/make_string_table.py ${string_source} ${string_table}
    DEPENDS ${string_source} ${resource_folder}/make_string_table.py
    COMMENT "Making the string table")
  set(string_table_sources ${string_table})
  file(READ ${script_source} module_script)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${script_source})
  configure_file(${resource_folder}/module_script.cpp.in ${generated_folder}/module_script.cpp @ONLY)
  set(module_resources ${generated_folder}/module_script.cpp)
endif()

# What is handed to users: a zip for each Windows target, two .deb for Linux. Made by ./dev package.
if(WIN32)
  set(program_folder .)
  set(library_folder .)
  set(document_folder .)
else()
  set(program_folder usr/bin)
  set(library_folder usr/lib/ostrel)
  set(document_folder usr/share/doc/ostrel)
endif()
# Programs and libraries are shipped without debug information; it goes into files of its own, which each of them names.
set(debug_folder ${CMAKE_BINARY_DIR}/debug)
if(OSTREL_SPLIT_DEBUG)
  foreach(target ostrel-host ostrel-meter OstrelProtocol TavrinDAServer ${station_target})
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_COMMAND} -E make_directory ${debug_folder}
      COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> ${debug_folder}/$<TARGET_FILE_NAME:${target}>.debug
      COMMAND ${CMAKE_OBJCOPY} --strip-unneeded --add-gnu-debuglink=${debug_folder}/$<TARGET_FILE_NAME:${target}>.debug
              $<TARGET_FILE:${target}>
      VERBATIM)
  endforeach()
endif()
install(TARGETS ostrel-host ostrel-meter RUNTIME DESTINATION ${program_folder})
install(TARGETS OstrelProtocol TavrinDAServer RUNTIME DESTINATION ${program_folder} LIBRARY DESTINATION ${library_folder})
# The pages lie to each other as in the sources, so that their links lead somewhere.
install(FILES README.md CHANGELOG.md DESTINATION ${document_folder})
install(DIRECTORY docs DESTINATION ${document_folder})
if(WIN32)
  install(FILES docs/example.toml DESTINATION .)
endif()
set_target_properties(ostrel-host PROPERTIES INSTALL_RPATH "$ORIGIN/../lib/ostrel")
set_target_properties(OstrelProtocol TavrinDAServer PROPERTIES INSTALL_RPATH "$ORIGIN")

set(CPACK_PACKAGE_NAME ostrel)
set(CPACK_PACKAGE_VENDOR "Ostrel maintainers")
set(CPACK_PACKAGE_CONTACT "Ostrel maintainers <maintainers@ostrel.example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "electricity meters of nine types, polled and kept")
set(CPACK_STRIP_FILES OFF)
if(OSTREL_SPLIT_DEBUG)
  include(cmake/PackageTexts.cmake)
endif()
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME ostrel-${PROJECT_VERSION}-windows-${CMAKE_SYSTEM_PROCESSOR})
elseif(OSTREL_SPLIT_DEBUG)
  include(cmake/DebianPackage.cmake)
endif()
include(CPack)

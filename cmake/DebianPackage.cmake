# Two packages: what polls by hand needs none of the station's libraries.
set(packaging ${PROJECT_SOURCE_DIR}/packaging)
set(packaged_folder ${CMAKE_BINARY_DIR}/generated)
find_program(GZIP gzip REQUIRED)

# --- pages made of --help, and a changelog in the form that the package system reads -----------------------------------------
set(see_ostrel-host "ostrel-meter\(1\)")
set(see_ostrel-meter "ostrel-host\(1\)")
set(see_ostrel-station "ostrel-host\(1\)")
foreach(program ostrel-host ostrel-meter ${station_target})
  set(page ${packaged_folder}/${program}.1)
  add_custom_command(OUTPUT ${page}.gz
    COMMAND ${Python3_EXECUTABLE} ${packaging}/make_man_page.py $<TARGET_FILE:${program}> ${see_${program}} > ${page}
    COMMAND ${GZIP} -9nf ${page}
    DEPENDS ${program} ${packaging}/make_man_page.py
    VERBATIM)
  list(APPEND manual_pages ${page}.gz)
endforeach()
add_custom_target(package_texts DEPENDS ${manual_pages})
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${packaging}/changelog.in ${packaged_folder}/changelog @ONLY)
execute_process(COMMAND ${GZIP} -9nf ${packaged_folder}/changelog COMMAND_ERROR_IS_FATAL ANY)
file(READ docs/example.toml example)
configure_file(${packaging}/ostrel.toml.in ${packaged_folder}/ostrel.toml @ONLY)

# --- what is installed besides programs, libraries and pages -----------------------------------------------------------------
install(FILES ${packaged_folder}/ostrel-host.1.gz ${packaged_folder}/ostrel-meter.1.gz DESTINATION usr/share/man/man1)
install(FILES ${packaged_folder}/changelog.gz DESTINATION ${document_folder})
install(FILES ${packaged_folder}/ostrel.toml DESTINATION etc/ostrel)
foreach(program ostrel-host ostrel-meter)
  install(FILES ${packaging}/completion.bash DESTINATION usr/share/bash-completion/completions RENAME ${program})
endforeach()
if(OSTREL_STATION)
  install(TARGETS ostrel-station RUNTIME DESTINATION usr/bin COMPONENT station)
  install(FILES ${PROJECT_SOURCE_DIR}/station/packaging/ostrel-station.service DESTINATION lib/systemd/system COMPONENT station)
  install(FILES ${PROJECT_SOURCE_DIR}/station/packaging/dashboard.json ${PROJECT_SOURCE_DIR}/station/packaging/alerts.yml
          ${copyright_file} ${packaged_folder}/changelog.gz DESTINATION usr/share/doc/ostrel-station COMPONENT station)
  install(FILES docs/station.toml DESTINATION etc/ostrel COMPONENT station)
  install(FILES ${packaged_folder}/ostrel-station.1.gz DESTINATION usr/share/man/man1 COMPONENT station)
  install(FILES ${packaging}/completion.bash DESTINATION usr/share/bash-completion/completions RENAME ostrel-station COMPONENT station)
endif()

# --- the packages themselves -------------------------------------------------------------------------------------------------
foreach(package ostrel ostrel-station)
  foreach(script postinst prerm postrm)
    if(EXISTS ${packaging}/${package}.${script})
      configure_file(${packaging}/${package}.${script} ${packaged_folder}/${package}/${script} COPYONLY)
      list(APPEND ${package}_control ${packaged_folder}/${package}/${script})
    endif()
  endforeach()
endforeach()
file(WRITE ${packaged_folder}/ostrel/conffiles "/etc/ostrel/ostrel.toml\n")
file(WRITE ${packaged_folder}/ostrel-station/conffiles "/etc/ostrel/station.toml\n")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_NAME ostrel)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_DEPENDS adduser)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_CONTROL_EXTRA ${ostrel_control} ${packaged_folder}/ostrel/conffiles)
set(CPACK_COMPONENT_UNSPECIFIED_DESCRIPTION "A plug-in for OPC servers that polls electricity meters on serial lines, a
host program for it, and simulated meters to try them with.")
set(CPACK_DEBIAN_STATION_PACKAGE_NAME ostrel-station)
set(CPACK_DEBIAN_STATION_PACKAGE_DEPENDS "ostrel (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_STATION_PACKAGE_CONTROL_EXTRA ${ostrel-station_control} ${packaged_folder}/ostrel-station/conffiles)
set(CPACK_COMPONENT_STATION_DESCRIPTION "The station polls meters unattended, keeps every value, fetches what it missed
from the meters' archives, and passes on to brokers, metrics and a web page.")

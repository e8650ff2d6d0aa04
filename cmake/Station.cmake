# The station. Its libraries, and why these: SQLite through SQLiteCpp (statements that end by themselves, nothing more between),
# libpqxx (the server's own people's C++ library), libmosquitto (3.1.1 and 5 in one small library, kept by the broker's
# people), cpp-httplib (server and TLS in one header's worth of interface, answers that stream), libsystemd (readiness and
# watchdog), libcrypt and libcrypto (passwords and tokens). Metrics are lines of text and need no library.
find_package(PkgConfig REQUIRED)
find_package(SQLiteCpp REQUIRED)
pkg_check_modules(station_libraries REQUIRED IMPORTED_TARGET sqlite3 libpqxx libmosquitto cpp-httplib libsystemd libcrypt libcrypto)

file(GLOB station_sources CONFIGURE_DEPENDS station/settings/*.cpp station/archive/*.cpp station/collect/*.cpp
     station/passing/*.cpp station/web/*.cpp station/program/*.cpp)
list(REMOVE_ITEM station_sources ${PROJECT_SOURCE_DIR}/station/program/main.cpp)
file(READ ${PROJECT_SOURCE_DIR}/station/web/page.html station_page)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/station/web/page.html)
configure_file(${PROJECT_SOURCE_DIR}/station/web/page.cpp.in ${PROJECT_BINARY_DIR}/generated/station_page.cpp @ONLY)
add_library(station_objects OBJECT ${station_sources} ${PROJECT_BINARY_DIR}/generated/station_page.cpp)
set_target_properties(station_objects PROPERTIES UNITY_BUILD OFF)
target_link_libraries(station_objects PUBLIC header_libraries SQLiteCpp PkgConfig::station_libraries)
set(station_target ostrel-station)
add_executable(ostrel-station station/program/main.cpp Protocol/model/CDeviceTag.cpp $<TARGET_OBJECTS:host_objects>)
target_link_libraries(ostrel-station PRIVATE station_objects TavrinDAServer diagnostics platform header_libraries)
set_target_properties(ostrel-station PROPERTIES BUILD_RPATH "$ORIGIN/../lib" INSTALL_RPATH "$ORIGIN/../lib/ostrel")

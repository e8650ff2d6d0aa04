# The header-only libraries of the programs: CLI11, toml++, nlohmann-json, fmt, asio. The plug-in uses none of them.
add_library(header_libraries INTERFACE)
target_compile_definitions(header_libraries INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED TOML_EXCEPTIONS=0)
if(WIN32)
  target_compile_definitions(header_libraries INTERFACE _WIN32_WINNT=0x0A00)
  target_link_libraries(header_libraries INTERFACE ws2_32 mswsock)
endif()
if(OSTREL_SANITIZE MATCHES thread)
  # The thread checker does not know fences; each of our I/O contexts runs on one thread, which needs none.
  target_compile_definitions(header_libraries INTERFACE ASIO_DISABLE_FENCED_BLOCK)
endif()
if(OSTREL_HEADERS)
  target_include_directories(header_libraries SYSTEM INTERFACE ${OSTREL_HEADERS})
endif()

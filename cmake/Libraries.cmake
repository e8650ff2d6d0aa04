# The header-only libraries of the programs: CLI11, toml++, nlohmann-json, fmt, asio. The plug-in uses none of them.
add_library(header_libraries INTERFACE)
target_compile_definitions(header_libraries INTERFACE FMT_HEADER_ONLY ASIO_STANDALONE ASIO_NO_DEPRECATED TOML_EXCEPTIONS=0)
if(OSTREL_HEADERS)
  target_include_directories(header_libraries SYSTEM INTERFACE ${OSTREL_HEADERS})
endif()

# One set of target names for every system: dep::boost dep::serialization
# dep::crypto dep::lmdb dep::xml dep::cli; GTest::gtest benchmark::benchmark.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

set(Boost_USE_STATIC_LIBS ON)
find_package(Boost 1.81 REQUIRED COMPONENTS serialization)
add_library(dep_boost INTERFACE)
add_library(dep::boost ALIAS dep_boost)
target_link_libraries(dep_boost INTERFACE Boost::headers Threads::Threads)
target_compile_definitions(dep_boost INTERFACE BOOST_ALL_NO_LIB BOOST_BIND_GLOBAL_PLACEHOLDERS)
add_library(dep_serialization INTERFACE)
add_library(dep::serialization ALIAS dep_serialization)
target_link_libraries(dep_serialization INTERFACE Boost::serialization dep::boost)

find_package(OpenSSL 3.0 REQUIRED)
add_library(dep_crypto INTERFACE)
add_library(dep::crypto ALIAS dep_crypto)
target_link_libraries(dep_crypto INTERFACE OpenSSL::Crypto)

find_path(LMDB_INCLUDE lmdb.h REQUIRED)
find_library(LMDB_LIBRARY lmdb REQUIRED)
add_library(dep_lmdb INTERFACE)
add_library(dep::lmdb ALIAS dep_lmdb)
target_include_directories(dep_lmdb SYSTEM INTERFACE ${LMDB_INCLUDE})
target_link_libraries(dep_lmdb INTERFACE ${LMDB_LIBRARY})

find_package(LibXml2 REQUIRED)
add_library(dep_xml INTERFACE)
add_library(dep::xml ALIAS dep_xml)
target_link_libraries(dep_xml INTERFACE LibXml2::LibXml2)

find_package(CLI11 CONFIG REQUIRED)
add_library(dep_cli INTERFACE)
add_library(dep::cli ALIAS dep_cli)
target_link_libraries(dep_cli INTERFACE CLI11::CLI11)

if(LISTHAVEN_BUILD_TESTS)
  find_package(GTest CONFIG REQUIRED)
endif()
if(LISTHAVEN_BUILD_BENCH)
  find_package(benchmark CONFIG REQUIRED)
  pkg_check_modules(GMIME REQUIRED IMPORTED_TARGET gmime-3.0)
endif()

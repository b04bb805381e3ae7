# Every third-party library comes from Debian's packages (scripts/setup-deps).

find_package(Threads REQUIRED)
find_package(Boost 1.74 REQUIRED COMPONENTS thread filesystem regex timer chrono)
find_package(LibXml2 REQUIRED)
find_package(LibXslt REQUIRED)
find_package(ZLIB REQUIRED)
find_package(OpenSSL 3 REQUIRED COMPONENTS Crypto)
find_package(PkgConfig REQUIRED)
pkg_check_modules(LOG4CPLUS REQUIRED IMPORTED_TARGET log4cplus)
pkg_check_modules(MINIZIP REQUIRED IMPORTED_TARGET minizip)
find_path(RAPIDJSON_INCLUDE_DIR rapidjson/document.h REQUIRED)

# The libraries that the system stands on, as imported targets. Shared by this tree and by the installed package.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(jansson REQUIRED IMPORTED_TARGET jansson>=2.14)
pkg_check_modules(nanomsg REQUIRED IMPORTED_TARGET nanomsg>=1.1.5)
pkg_check_modules(pcre REQUIRED IMPORTED_TARGET libpcre>=8.39)
pkg_check_modules(sqlite3 REQUIRED IMPORTED_TARGET sqlite3>=3.40)

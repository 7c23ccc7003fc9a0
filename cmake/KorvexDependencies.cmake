# Finds the external libraries once and exposes them as targets the layers link:
#   OpenSSL::Crypto, korvex_boost (headers), korvex_p11kit (pkcs11.h), korvex_wx.
find_package(OpenSSL 3.0 REQUIRED)
find_package(Threads REQUIRED)
find_package(Boost 1.74 REQUIRED)
add_library(korvex_boost INTERFACE)
target_include_directories(korvex_boost SYSTEM INTERFACE ${Boost_INCLUDE_DIRS})

find_package(PkgConfig REQUIRED)
pkg_check_modules(P11KIT REQUIRED IMPORTED_TARGET p11-kit-1)
# Only the standard header is wanted, never the p11-kit library itself.
add_library(korvex_p11kit INTERFACE)
target_include_directories(korvex_p11kit SYSTEM INTERFACE ${P11KIT_INCLUDE_DIRS})

# wxWidgets 3.2 (GTK3, Unicode). Only app/, gui/ and base's toolkit helpers use it.
find_package(wxWidgets 3.2 COMPONENTS core base adv QUIET)
if(wxWidgets_FOUND)
  add_library(korvex_wx INTERFACE)
  target_include_directories(korvex_wx SYSTEM INTERFACE ${wxWidgets_INCLUDE_DIRS})
  target_compile_definitions(korvex_wx INTERFACE ${wxWidgets_DEFINITIONS})
  target_compile_options(korvex_wx INTERFACE ${wxWidgets_CXX_FLAGS})
  target_link_libraries(korvex_wx INTERFACE ${wxWidgets_LIBRARIES})
else()
  message(WARNING "wxWidgets 3.2 not found: the program and its GUI tests are not built")
endif()

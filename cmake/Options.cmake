# Language, warnings and hardening for everything we compile.
add_library(dnspair_options INTERFACE)
target_compile_features(dnspair_options INTERFACE cxx_std_20)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

target_include_directories(dnspair_options INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(dnspair_options INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wformat=2
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wundef -Wvla
  -fstack-protector-strong -fno-omit-frame-pointer)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # g++ 12 sees overlapping copies in "literal" + std::string where there are none (GCC bug 105651).
  target_compile_options(dnspair_options INTERFACE -Wno-restrict)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # __VA_OPT__ is C++20; clang 14 still calls it an extension.
  target_compile_options(dnspair_options INTERFACE -Wno-gnu-zero-variadic-macro-arguments)
endif()

# Releases are optimised as a whole: the way of a packet crosses many small files, and link-time inlining makes it
# 4 % shorter.
include(CheckIPOSupported)
check_ipo_supported(RESULT ipo_supported OUTPUT ipo_problem LANGUAGES CXX)
if(ipo_supported)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION_RELEASE ON)
endif()

if(DNSPAIR_FUZZ)
  set(DNSPAIR_SANITIZE ON)
  target_compile_options(dnspair_options INTERFACE -fsanitize=fuzzer-no-link)  # counts what an input reaches
endif()

if(DNSPAIR_SANITIZE)
  # Host and plug-in are built apart and meet in memory: each sees objects of classes that the other declared, which
  # is what the checks of vptr and function types are there to find.
  target_compile_options(dnspair_options INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
    -fno-sanitize=vptr $<$<CXX_COMPILER_ID:Clang>:-fno-sanitize=function>)
  target_link_options(dnspair_options INTERFACE -fsanitize=address,undefined)
else()
  target_compile_options(dnspair_options INTERFACE
    -fstack-clash-protection $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  target_link_options(dnspair_options INTERFACE -Wl,-z,relro,-z,now)
endif()

if(DNSPAIR_COVERAGE)
  target_compile_definitions(dnspair_options INTERFACE DNSPAIR_COVERAGE)  # children that abort save their counters
  target_compile_options(dnspair_options INTERFACE --coverage -O0)
  target_link_options(dnspair_options INTERFACE --coverage)
endif()

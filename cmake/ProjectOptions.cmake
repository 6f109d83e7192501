# What every target of the project is compiled with: warnings, reproducible float arithmetic, strict Qt, sanitizers.
add_library(bp_options INTERFACE)

option(BIOPROCESSING_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" ON)
set(BIOPROCESSING_SANITIZE "" CACHE STRING "Sanitizers to build with, for example address,undefined or thread")

if(MSVC)
  # /fp:precise keeps the documented order of float operations.
  target_compile_options(bp_options INTERFACE /W4 /utf-8 /permissive- /Zc:__cplusplus /fp:precise
    $<$<BOOL:${BIOPROCESSING_WARNINGS_AS_ERRORS}>:/WX>)
  target_compile_definitions(bp_options INTERFACE _CRT_SECURE_NO_WARNINGS NOMINMAX)
else()
  # No contraction into fused operations: two builds give the same samples.
  target_compile_options(bp_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    -ffp-contract=off $<$<BOOL:${BIOPROCESSING_WARNINGS_AS_ERRORS}>:-Werror>)
endif()

target_compile_definitions(bp_options INTERFACE
  QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING QT_NO_FOREACH QT_NO_JAVA_STYLE_ITERATORS
  QT_DEPRECATED_WARNINGS QT_DISABLE_DEPRECATED_BEFORE=0x050F00)

if(BIOPROCESSING_SANITIZE)
  target_compile_options(bp_options INTERFACE -fsanitize=${BIOPROCESSING_SANITIZE} -fno-omit-frame-pointer)
  target_link_options(bp_options INTERFACE -fsanitize=${BIOPROCESSING_SANITIZE})
endif()
if(BIOPROCESSING_FUZZERS)
  # Everything reports which branches an input took; the fuzz programs alone link libFuzzer's main.
  target_compile_options(bp_options INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(bp_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

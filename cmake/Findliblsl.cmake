# Finds liblsl, the library of the streaming outlets (its C interface): target LSL::lsl.
# Packages bring a configuration file called LSL; the folder that scripts/setup makes is a bare header and library.
find_package(LSL QUIET CONFIG)
if(TARGET LSL::lsl)
  set(_liblsl_vars LSL_DIR)
else()
  find_path(liblsl_INCLUDE_DIR lsl_c.h PATHS ${BIOPROCESSING_DEPS}/liblsl/include)
  find_library(liblsl_LIBRARY NAMES lsl liblsl PATHS ${BIOPROCESSING_DEPS}/liblsl/lib)
  mark_as_advanced(liblsl_INCLUDE_DIR liblsl_LIBRARY)
  set(_liblsl_vars liblsl_LIBRARY liblsl_INCLUDE_DIR)
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(liblsl
  REQUIRED_VARS ${_liblsl_vars}
  REASON_FAILURE_MESSAGE "Run scripts/setup, or install liblsl (Debian testing: liblsl-dev) and add it to CMAKE_PREFIX_PATH.")

if(liblsl_FOUND AND NOT TARGET LSL::lsl)
  if(liblsl_LIBRARY MATCHES "\\.so$")
    # The prebuilt library names no soname: linked by its path, that path would be what is looked up at run time.
    add_library(LSL::lsl SHARED IMPORTED)
    set_target_properties(LSL::lsl PROPERTIES IMPORTED_NO_SONAME ON)
  else()
    add_library(LSL::lsl UNKNOWN IMPORTED)
  endif()
  set_target_properties(LSL::lsl PROPERTIES
    IMPORTED_LOCATION ${liblsl_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES ${liblsl_INCLUDE_DIR})
endif()

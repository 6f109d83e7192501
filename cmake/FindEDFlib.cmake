# Finds EDFlib, the EDF+/BDF+ library of the format's author: target EDFlib::EDFlib.
find_path(EDFlib_INCLUDE_DIR edflib.h)
find_library(EDFlib_LIBRARY NAMES edf EDFlib)

if(EDFlib_INCLUDE_DIR AND EXISTS ${EDFlib_INCLUDE_DIR}/edflib.h)
  file(STRINGS ${EDFlib_INCLUDE_DIR}/edflib.h _edflib_calls REGEX "edf_set_number_of_annotation_signals")
  if(NOT _edflib_calls)
    set(EDFlib_INCLUDE_DIR EDFlib_INCLUDE_DIR-NOTFOUND)
  endif()
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(EDFlib
  REQUIRED_VARS EDFlib_LIBRARY EDFlib_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "Run scripts/setup, or install EDFlib 1.19 or newer (Debian: libedf-dev).")

if(EDFlib_FOUND AND NOT TARGET EDFlib::EDFlib)
  add_library(EDFlib::EDFlib UNKNOWN IMPORTED)
  set_target_properties(EDFlib::EDFlib PROPERTIES
    IMPORTED_LOCATION ${EDFlib_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES ${EDFlib_INCLUDE_DIR})
endif()
mark_as_advanced(EDFlib_INCLUDE_DIR EDFlib_LIBRARY)

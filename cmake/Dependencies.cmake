# Where scripts/setup keeps the libraries that the system has no package of. The find modules look there last, so that a
# package of the system always wins. Override with the environment variable or the CMake variable of the same name.
if(NOT DEFINED BIOPROCESSING_DEPS)
  if(DEFINED ENV{BIOPROCESSING_DEPS})
    set(BIOPROCESSING_DEPS $ENV{BIOPROCESSING_DEPS})
  elseif(DEFINED ENV{XDG_CACHE_HOME})
    set(BIOPROCESSING_DEPS $ENV{XDG_CACHE_HOME}/bioprocessing/deps)
  else()
    set(BIOPROCESSING_DEPS $ENV{HOME}/.cache/bioprocessing/deps)
  endif()
  file(TO_CMAKE_PATH "${BIOPROCESSING_DEPS}" BIOPROCESSING_DEPS)
endif()

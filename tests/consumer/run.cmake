# Installs the build, moves the installed tree, and uses it as other projects do: through the CMake package and through
# pkg-config. Given by CTest: bp_build, bp_source, bp_work, bp_config, bp_generator, bp_compiler, bp_flags, bp_deps,
# bp_pkg_config.
cmake_minimum_required(VERSION 3.21)

set(prefix ${bp_work}/moved)
file(REMOVE_RECURSE ${bp_work})
file(MAKE_DIRECTORY ${bp_work})
unset(ENV{DESTDIR})
unset(ENV{LD_LIBRARY_PATH})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\n${output}\nEnded with ${status}; the files are in ${bp_work}.")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${bp_build} --config ${bp_config} --prefix ${bp_work}/installed)
file(RENAME ${bp_work}/installed ${prefix})

# Nothing of the installed tree may need the build tree or the libraries that scripts/setup made for this user.
if(CMAKE_HOST_UNIX AND NOT CMAKE_HOST_APPLE)
  file(GLOB_RECURSE binaries ${prefix}/*.so ${prefix}/*.so.*)
  file(GLOB_RECURSE programs ${prefix}/*/bioprocessing/bioprocessing)
  file(GET_RUNTIME_DEPENDENCIES LIBRARIES ${binaries} EXECUTABLES ${programs} RESOLVED_DEPENDENCIES_VAR needed)
  foreach(library IN LISTS needed)
    if(library MATCHES "^(${bp_build}|${bp_deps})/" AND NOT library MATCHES "^${prefix}/")
      message(FATAL_ERROR "The installed tree needs ${library}.")
    endif()
  endforeach()
endif()

run(${CMAKE_COMMAND} -S ${bp_source} -B ${bp_work}/build -G ${bp_generator} -DCMAKE_PREFIX_PATH=${prefix}
  -DCMAKE_BUILD_TYPE=${bp_config} -DCMAKE_CXX_COMPILER=${bp_compiler} -DCMAKE_CXX_FLAGS=${bp_flags})
run(${CMAKE_COMMAND} --build ${bp_work}/build --config ${bp_config})
run(${CMAKE_COMMAND} --build ${bp_work}/build --config ${bp_config} --target run)
message("Through the CMake package: built and run.")

if(bp_pkg_config)
  file(GLOB_RECURSE descriptions ${prefix}/*/bioprocessing.pc)
  get_filename_component(folder ${descriptions} DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${folder}:$ENV{PKG_CONFIG_PATH})
  run(${bp_pkg_config} --cflags --libs "bioprocessing >= 0.1")
  separate_arguments(flags UNIX_COMMAND "${bp_flags} ${output}")
  run(${bp_pkg_config} --variable=libdir bioprocessing)
  string(STRIP "${output}" libdir)
  run(${bp_pkg_config} --variable=devicesdir bioprocessing)
  string(STRIP "${output}" devices)
  file(COPY ${devices} DESTINATION ${bp_work}/plain)
  run(${bp_compiler} -std=c++17 -fPIC ${bp_source}/main.cpp -o ${bp_work}/plain/consumer ${flags} -Wl,-rpath,${libdir})
  run(${bp_work}/plain/consumer)
  message("Through pkg-config: built and run.")
else()
  message("pkg-config is not there: its half is skipped.")
endif()
file(REMOVE_RECURSE ${bp_work})

# Run by the installation: installs the public headers under the paths that they have in the tree.
cmake_policy(PUSH)
cmake_policy(VERSION 3.21)

include(${CMAKE_CURRENT_LIST_DIR}/PublicHeaders.cmake)
bp_public_headers(${bp_source_dir} public)

foreach(header IN LISTS public)
  get_filename_component(folder ${header} DIRECTORY)
  file(INSTALL ${bp_source_dir}/${header} DESTINATION ${CMAKE_INSTALL_PREFIX}/${bp_header_dir}/${folder})
endforeach()

cmake_policy(POP)

# Where things go. A program finds device plug-ins and captions beside itself: on Windows all is in bin/; elsewhere they share a
# private folder of lib/ with the program, and bin/ has a link to it. Every path between installed files is relative, so
# that an installed tree can be moved. Install components: Library, Host, Devices, Development.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

if(WIN32)
  set(bp_app_dir ${CMAKE_INSTALL_BINDIR})
else()
  set(bp_app_dir ${CMAKE_INSTALL_LIBDIR}/bioprocessing)
endif()
if(APPLE)
  set(bp_origin @loader_path)
else()
  set(bp_origin $ORIGIN)
endif()
set(bp_doc_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/bioprocessing)
set(bp_header_dir ${CMAKE_INSTALL_INCLUDEDIR}/BioProcessing)
set(bp_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/BioProcessing)

# CMAKE_INSTALL_RPATH is for dependencies that are in no usual place.
set_target_properties(BioProcessing PROPERTIES INSTALL_RPATH "${bp_origin}/bioprocessing;${CMAKE_INSTALL_RPATH}")
install(TARGETS BioProcessing EXPORT BioProcessingTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Library
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Library NAMELINK_COMPONENT Development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development
  INCLUDES DESTINATION ${bp_header_dir})
install(DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/translations DESTINATION ${bp_app_dir} COMPONENT Library
  FILES_MATCHING PATTERN *.qm)

set_target_properties(bioprocessing PROPERTIES INSTALL_RPATH "${bp_origin}/..;${CMAKE_INSTALL_RPATH}")
install(TARGETS bioprocessing RUNTIME DESTINATION ${bp_app_dir} COMPONENT Host)
if(NOT WIN32)
  file(RELATIVE_PATH program /${CMAKE_INSTALL_BINDIR} /${bp_app_dir}/bioprocessing)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/link)
  file(CREATE_LINK ${program} ${PROJECT_BINARY_DIR}/link/bioprocessing SYMBOLIC)
  install(FILES ${PROJECT_BINARY_DIR}/link/bioprocessing DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Host)
endif()

foreach(device Playback Simulator)
  set_target_properties(${device}Amplifier PROPERTIES INSTALL_RPATH "${bp_origin}/../../..;${CMAKE_INSTALL_RPATH}")
  install(TARGETS ${device}Amplifier LIBRARY DESTINATION ${bp_app_dir}/HalvinDevices/${device} COMPONENT Devices)
endforeach()

# bp_install_provided(<name> <target> <where it was found>): a shared library that scripts/setup made is on no other machine,
# so it goes along; of a static one, which is inside ours, the licence does.
function(bp_install_provided name target place)
  string(FIND "${place}" "${BIOPROCESSING_DEPS}/${name}/" position)
  if(NOT position EQUAL 0)
    return()
  endif()
  get_target_property(type ${target} TYPE)
  if(type STREQUAL SHARED_LIBRARY)
    install(IMPORTED_RUNTIME_ARTIFACTS ${target}
      RUNTIME DESTINATION ${bp_app_dir} COMPONENT Library
      LIBRARY DESTINATION ${bp_app_dir} COMPONENT Library)
  endif()
  install(FILES ${BIOPROCESSING_DEPS}/${name}/LICENSE DESTINATION ${bp_doc_dir} RENAME LICENSE.${name}
    COMPONENT Library)
endfunction()
bp_install_provided(liblsl LSL::lsl "${liblsl_LIBRARY}")
bp_install_provided(qxlsx QXlsx::QXlsx "${QXlsx_DIR}")

install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_SOURCE_DIR}/CONTRIBUTING.md
  DESTINATION ${bp_doc_dir} COMPONENT Library)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${bp_doc_dir} COMPONENT Library FILES_MATCHING PATTERN *.md)

install(CODE "
  set(bp_source_dir \"${PROJECT_SOURCE_DIR}/src\")
  set(bp_header_dir \"${bp_header_dir}\")"
  SCRIPT ${CMAKE_CURRENT_LIST_DIR}/InstallHeaders.cmake COMPONENT Development)

install(EXPORT BioProcessingTargets NAMESPACE BioProcessing:: DESTINATION ${bp_package_dir} COMPONENT Development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/BioProcessingConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/BioProcessingConfig.cmake
  INSTALL_DESTINATION ${bp_package_dir} PATH_VARS bp_app_dir NO_SET_AND_CHECK_MACRO)
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/BioProcessingConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/BioProcessingConfig.cmake
  ${PROJECT_BINARY_DIR}/package/BioProcessingConfigVersion.cmake DESTINATION ${bp_package_dir} COMPONENT Development)

file(RELATIVE_PATH bp_pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" bp_pc_prefix "${bp_pc_prefix}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/bioprocessing.pc.in ${PROJECT_BINARY_DIR}/package/bioprocessing.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/bioprocessing.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT Development)

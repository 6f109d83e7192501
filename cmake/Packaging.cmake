# cpack -G DEB gives bioprocessing and bioprocessing-dev; -G TGZ and -G ZIP one archive that runs where it is unpacked.
set(CPACK_PACKAGE_NAME bioprocessing)
set(CPACK_PACKAGE_VENDOR "BioProcessing developers")
set(CPACK_PACKAGE_CONTACT "BioProcessing developers <bioprocessing@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
if(WIN32)
  set(CPACK_GENERATOR ZIP)
else()
  set(CPACK_GENERATOR TGZ)
endif()

foreach(component LIBRARY HOST DEVICES)
  set(CPACK_COMPONENT_${component}_GROUP Runtime)
endforeach()
set(CPACK_COMPONENT_DEVELOPMENT_GROUP Development)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME bioprocessing)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION science)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
  "Takes the multichannel stream of a bio-signal amplifier, re-references and
filters it while it runs, and records it to EDF+ with annotations. Holds the
library, a simulator and a player of recordings as devices, and the
command-line host.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME bioprocessing-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "bioprocessing (= ${PROJECT_VERSION}), qtbase5-dev (>= 5.15)")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "Headers, CMake package and pkg-config description, for hosts and device plug-ins.")

# Programs that are packaged against ours depend on it by this.
file(WRITE ${PROJECT_BINARY_DIR}/package/shlibs
  "libBioProcessing ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR} bioprocessing (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/package/shlibs)

include(CPack)

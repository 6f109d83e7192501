# Finds QXlsx built for Qt 5, the library of the spreadsheets: target QXlsx::QXlsx.
# Its configuration file is called QXlsx or, in later releases, QXlsxQt5, and links to Qt's Gui module without looking for it.
find_package(Qt5 5.15 QUIET COMPONENTS Core Gui)
find_package(QXlsx QUIET CONFIG NAMES QXlsxQt5 QXlsx PATHS ${BIOPROCESSING_DEPS}/qxlsx)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(QXlsx
  REQUIRED_VARS QXlsx_DIR
  REASON_FAILURE_MESSAGE "Run scripts/setup, or install QXlsx for Qt 5 (Debian 13: libqt5qxlsx-dev) and add it to CMAKE_PREFIX_PATH.")

#pragma once

#include <QtGlobal>

#if defined(BIOPROCESSING_LIBRARY)
#define BIOPROCESSING_EXPORT Q_DECL_EXPORT
#else
#define BIOPROCESSING_EXPORT Q_DECL_IMPORT
#endif

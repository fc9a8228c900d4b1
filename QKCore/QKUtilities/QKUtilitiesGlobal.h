#pragma once

#include <QtCore/qglobal.h>

#if defined(QKUTILITIES_LIBRARY)
#define QKUTILITIES_EXPORT Q_DECL_EXPORT
#else
#define QKUTILITIES_EXPORT Q_DECL_IMPORT
#endif

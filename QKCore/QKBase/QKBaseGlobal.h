#pragma once

#include <QtCore/qglobal.h>

#if defined(QKBASE_LIBRARY)
#define QKBASE_EXPORT Q_DECL_EXPORT
#else
#define QKBASE_EXPORT Q_DECL_IMPORT
#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXPORT_H
#define FERRULE_EXPORT_H

#include <QtCore/qglobal.h>

/*!
    Marks what the library exports. `FERRULE_BUILD` is defined while the library itself is compiled,
    `FERRULE_STATIC` where its objects are linked straight into a program.
*/
#if defined(FERRULE_STATIC)
#    define FERRULE_EXPORT
#elif defined(FERRULE_BUILD)
#    define FERRULE_EXPORT Q_DECL_EXPORT
#else
#    define FERRULE_EXPORT Q_DECL_IMPORT
#endif

#endif

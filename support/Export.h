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

/*!
    Mark the declaration and the definition of a template that the library instantiates for its
    hosts. Microsoft's compilers export by the definition; all others, on Windows too, heed only the
    declaration.
*/
#if defined(Q_CC_MSVC) && defined(FERRULE_BUILD)
#    define FERRULE_TEMPLATE_DECLARATION
#    define FERRULE_TEMPLATE_DEFINITION FERRULE_EXPORT
#else
#    define FERRULE_TEMPLATE_DECLARATION FERRULE_EXPORT
#    define FERRULE_TEMPLATE_DEFINITION
#endif

#endif

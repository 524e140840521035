// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_IMPORTEDWRAP_H
#define FERRULE_TESTS_IMPORTEDWRAP_H

#include <QtCore/qglobal.h>

/*!
    Stands behind the definition of `__wrap_<function>` where \a function is Qt's: on Windows, what
    Qt's headers declare as imported is called through a pointer, which the linker wraps as well.
*/
#ifdef Q_OS_WIN
#    define WRAP_IMPORTED(function)                                                                \
        extern "C" {                                                                               \
        extern decltype(&__wrap_##function) __wrap___imp_##function;                               \
        decltype(&__wrap_##function) __wrap___imp_##function = &__wrap_##function;                 \
        }
#else
#    define WRAP_IMPORTED(function)
#endif

#endif

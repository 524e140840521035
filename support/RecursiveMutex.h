// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_RECURSIVEMUTEX_H
#define FERRULE_RECURSIVEMUTEX_H

#include <Ferrule/Export.h>

#include <QtCore/QMutex>

namespace vela {

/*!
    A `QMutex` in recursive mode that `std::lock_guard` takes, and that ThreadSanitizer sees: Qt's
    own libraries are not built with it, so it would miss what this mutex protects.
*/
class FERRULE_EXPORT RecursiveMutex
{
public:
    void lock();
    void unlock();

private:
    QMutex m_mutex{QMutex::Recursive};
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_ROOTCACHE_H
#define FERRULE_ROOTCACHE_H

#include "store/validation/CertificateIndex.h"
#include "store/platform/linux/roots/RootLocations.h"

#include <memory>
#include <mutex>

namespace vela {

/*! The trusted roots as they were read at one time; never changed. */
struct RootSet
{
    RootLocations locations;
    RootFiles files;
    CertificateIndex certificates;
};

using RootSetPtr = std::shared_ptr<const RootSet>;

/*!
    The process's one copy of the trusted roots. Reading a system's bundle takes far longer than
    asking whether it has changed, so that is all that happens when it has not.
*/
class RootCache
{
public:
    //! Returns the roots as they are now. If they had to be read and some could not, the log says
    //! so in one line.
    RootSetPtr current();

    //! How often the roots have been read.
    int readCount() const;

private:
    RootSetPtr upToDate(RootReport* report);

    mutable std::mutex m_mutex;
    RootSetPtr m_roots;
    int m_readCount = 0;
};

RootCache& rootCache();

} // namespace vela

#endif

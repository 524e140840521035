// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/SystemRootStore.h"

#include "store/platform/linux/roots/ChangeWatcher.h"
#include "store/platform/linux/roots/RootCache.h"

namespace vela {

SystemRootStore::~SystemRootStore()
{
    changeWatcher().disarmAll(this);
}

std::vector<DecodedCertificatePtr>
SystemRootStore::issuersOf(const DecodedCertificate& certificate) const
{
    return rootCache().current()->certificates.issuersOf(certificate);
}

//! The roots are decoded when they are read, and trusted, which is more than proven.
void SystemRootStore::prepare(WorkBudget*)
{
}

bool SystemRootStore::isProven(const DecodedCertificatePtr&) const
{
    return false;
}

void SystemRootStore::noteProven(const DecodedCertificatePtr&)
{
}

DWORD SystemRootStore::add(const CertificateContext&, DWORD)
{
    return ERROR_ACCESS_DENIED;
}

DWORD SystemRootStore::control(DWORD control, const EventPtr& event)
{
    switch (control) {
    case CERT_STORE_CTRL_NOTIFY_CHANGE:
        return notifyChange(event);
    case CERT_STORE_CTRL_RESYNC:
        return resynchronise(event);
    case CERT_STORE_CTRL_CANCEL_NOTIFY:
        return cancelNotify(event);
    default:
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

void SystemRootStore::close()
{
    changeWatcher().disarmAll(this);
}

DWORD SystemRootStore::notifyChange(const EventPtr& event)
{
    if (!event)
        return ERROR_INVALID_HANDLE;
    const RootLocations locations = RootLocations::fromEnvironment();
    return changeWatcher().arm(this, event, locations, locations.files())
               ? ERROR_SUCCESS
               : ERROR_NO_SYSTEM_RESOURCES;
}

DWORD SystemRootStore::resynchronise(const EventPtr& event)
{
    const RootSetPtr roots = rootCache().current();
    if (!event)
        return ERROR_SUCCESS;
    return changeWatcher().arm(this, event, roots->locations, roots->files)
               ? ERROR_SUCCESS
               : ERROR_NO_SYSTEM_RESOURCES;
}

DWORD SystemRootStore::cancelNotify(const EventPtr& event)
{
    if (event)
        changeWatcher().disarm(this, event);
    else
        changeWatcher().disarmAll(this);
    return ERROR_SUCCESS;
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/roots/RootCache.h"

#include "cert/CertificateCoding.h"
#include "store/platform/linux/roots/RegularFile.h"
#include "store/platform/linux/roots/RootReport.h"
#include "support/OpenSslErrorMark.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <optional>

namespace vela {

namespace {

//! More than any bundle has; keeps a wrong name in the environment from filling the memory.
constexpr int MAX_FILE_SIZE = 64 * 1024 * 1024;

//! Returns the next certificate; empty for a damaged block, and nothing at the end.
std::optional<QByteArray> readNext(BIO* bio)
{
    const OpenSslErrorMark mark;
    if (const X509Handle x509 = readPemCertificate(bio))
        return derOf(x509.get());
    if (ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE)
        return std::nullopt;
    return QByteArray();
}

struct BlockCount
{
    int good = 0;
    int damaged = 0;
};

//! A damaged block costs its own certificate, not those that follow.
BlockCount readCertificates(const QByteArray& pem, CertificateIndex* certificates)
{
    BlockCount count;
    const BioHandle bio = openMemory(pem.constData(), pem.size());
    if (!bio)
        return count;
    while (const std::optional<QByteArray> der = readNext(bio.get())) {
        const DecodedCertificatePtr certificate = DecodedCertificate::fromDer(*der);
        if (certificate)
            certificates->add(certificate);
        ++(certificate ? count.good : count.damaged);
    }
    return count;
}

void readFile(const std::string& path, RootSet* roots, RootReport* report)
{
    const FileContent file = readRegularFile(path, MAX_FILE_SIZE);
    if (file.error != 0) {
        report->addError(path, file.error);
        return;
    }
    const BlockCount count = readCertificates(file.bytes, &roots->certificates);
    if (count.damaged > 0)
        report->addDamage(path, count.damaged);
    else if (count.good == 0 && roots->locations.isExpectedToHoldRoots(path))
        report->addEmpty(path);
}

RootSetPtr readRoots(const RootLocations& locations, const RootFiles& files, RootReport* report)
{
    const auto roots = std::make_shared<RootSet>();
    roots->locations = locations;
    roots->files = files;
    for (const RootFile& file : files)
        readFile(file.path, roots.get(), report);
    locations.reportMissing(report);
    return roots;
}

// At namespace scope, so that it is there before, and until after, every store of the host.
RootCache cache;

} // namespace

RootSetPtr RootCache::current()
{
    RootReport report;
    const RootSetPtr roots = upToDate(&report);
    // Not under the lock: the stream is the host's own code.
    report.log();
    return roots;
}

RootSetPtr RootCache::upToDate(RootReport* report)
{
    const RootLocations locations = RootLocations::fromEnvironment();
    const RootFiles files = locations.files();
    const std::lock_guard<std::mutex> locker(m_mutex);
    if (!m_roots || m_roots->files != files
        || m_roots->locations.userDirectory() != locations.userDirectory()) {
        m_roots = readRoots(locations, files, report);
        ++m_readCount;
    }
    return m_roots;
}

int RootCache::readCount() const
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    return m_readCount;
}

RootCache& rootCache()
{
    return cache;
}

} // namespace vela

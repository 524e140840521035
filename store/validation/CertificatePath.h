// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATEPATH_H
#define FERRULE_CERTIFICATEPATH_H

#include "store/validation/DecodedCertificate.h"
#include "store/validation/PathErrors.h"

#include <QtCore/QByteArray>

#include <vector>

namespace vela {

/*! Where a path's certificates come from: candidates, and which of them are trusted roots. */
class CertificateSource
{
public:
    CertificateSource() = default;
    virtual ~CertificateSource() = default;

    virtual bool isTrusted(const DecodedCertificatePtr& certificate) const = 0;
    //! Whether \a certificate has stood above another in a path that was in order.
    virtual bool isProven(const DecodedCertificatePtr& certificate) const = 0;
    //! Returns every certificate that bears the name of \a certificate's issuer, trusted or not.
    virtual std::vector<DecodedCertificatePtr>
    issuersOf(const DecodedCertificate& certificate) const = 0;

private:
    Q_DISABLE_COPY(CertificateSource)
};

/*! How far a search goes at most; what lies beyond is not valid. */
struct PathLimits
{
    std::size_t length = 20;
    int paths = 200;
    int signatures = 200;
    std::size_t comparisons = 1 << 19; //!< Of names with constraints.
    qint64 work = 30000000;            //!< Nanoseconds, as WorkBudget counts.
    qint64 decoding = 50000000;        //!< The same, for what a chain's certificates take before.
};

/*! What is asked: whether the way from a certificate to a root is in order. */
struct PathQuestion
{
    DecodedCertificatePtr certificate;
    qint64 time = 0;                //!< Seconds since the epoch.
    std::vector<QByteArray> usages; //!< Object identifiers in digits; empty for any usage.
    bool needsAllUsages = true;     //!< One of several is enough otherwise.
    PathLimits limits;
};

/*! One certificate of a path, and how it hangs together with the next one. */
struct PathElement
{
    DecodedCertificatePtr certificate;
    bool isSelfSigned = false;
    bool isSignatureValid = true;
    //! How the next certificate was found, or this one itself if it is self-signed.
    DecodedCertificate::IssuerMatch issuerMatch = DecodedCertificate::IssuerMatch::None;
    bool hasIssuer = false;
};

/*! A way from a certificate to where it ends, the end certificate first. */
struct CertificatePath
{
    enum class End {
        Trusted,
        UntrustedRoot, //!< A certificate that names itself as its issuer.
        NoIssuer,
    };

    std::vector<PathElement> elements;
    End end = End::NoIssuer;
    bool isCyclic = false; //!< The only issuers stood in the path already.
};

/*! A path with everything there is to say about it. */
struct JudgedPath
{
    CertificatePath path;
    std::vector<PathErrors> elementErrors;
    PathErrors errors = NoPathError; //!< Of the elements and of the whole.

    //! Whether it ends in a self-signed certificate that is not trusted.
    bool endsSelfSigned() const
    {
        return path.end == CertificatePath::End::UntrustedRoot && path.elements.back().isSelfSigned;
    }
};

/*! The best path there is, and what it took to find it. */
struct PathAnswer
{
    JudgedPath best;
    int paths = 0;
    int signatures = 0;
    qint64 work = 0; //!< Nanoseconds, as WorkBudget counts.
};

} // namespace vela

#endif

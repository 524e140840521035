// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTVERIFY_H
#define FERRULE_CERTVERIFY_H

namespace vela {

/*!
    The verdict on a certificate or a chain.

    Registered with Qt as "vela::CertVerify" when the library is loaded, so that it travels through
    queued signals. A host that wants it inside a `QVariant` (or reads it from a `QSignalSpy`) adds
    `Q_DECLARE_METATYPE(vela::CertVerify)` to its own sources; the library leaves that out because
    types declared that way cannot be withdrawn when the library is unloaded.
*/
enum CertVerify : unsigned int {
    VerifyUnknown = 0,     //!< Nobody has judged.
    VerifyOk = 1,          //!< Verified without an error.
    VerifySelfSigned = 2,  //!< A self-signed certificate stands in the failing chain.
    VerifyExpired = 3,     //!< The validity period has ended.
    VerifyNotYetValid = 4, //!< The validity period has not begun.
    VerifyFailed = 5       //!< Any other failure.
};

} // namespace vela

#endif

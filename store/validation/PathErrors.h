// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PATHERRORS_H
#define FERRULE_PATHERRORS_H

#include <QtCore/qglobal.h>

namespace vela {

/*! What can be wrong with a certificate of a path, or with the path as a whole. */
enum PathError : quint32 {
    NoPathError = 0,
    NotTimeValid = 1U << 0,
    SignatureInvalid = 1U << 1,
    SignatureWeak = 1U << 2, //!< By its digest or by the certified key.
    ExtensionInvalid = 1U << 3,
    ExtensionNotSupported = 1U << 4, //!< And critical.
    UsageInvalid = 1U << 5,
    AuthorityInvalid = 1U << 6, //!< No authority, or one too many.
    NameNotPermitted = 1U << 7,
    NameExcluded = 1U << 8,
    NameNotComparable = 1U << 9, //!< With its constraint, or beyond what there is time for.
    NameNotSupported = 1U << 10,
    RootUntrusted = 1U << 11,
    PolicyInvalid = 1U << 12,
    PathIncomplete = 1U << 13,
    PathCyclic = 1U << 14, //!< The only issuers stood in it already.
};

//! Any of them together.
using PathErrors = quint32;

} // namespace vela

#endif

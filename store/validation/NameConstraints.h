// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_NAMECONSTRAINTS_H
#define FERRULE_NAMECONSTRAINTS_H

#include "store/validation/CertificateNames.h"
#include "store/validation/PathErrors.h"
#include "store/validation/WorkBudget.h"
#include "support/OpenSslHandles.h"

#include <memory>
#include <vector>

namespace vela {

using NameConstraintsHandle =
    std::unique_ptr<NAME_CONSTRAINTS, OpenSslDeleter<NAME_CONSTRAINTS_free>>;

/*!
    What an authority may issue certificates for.

    Directory names are left to the engine. Host names, mail addresses, URIs and IP addresses are
    compared here, as engines differ in which of them they know and in what they make of names that
    are none. Other kinds are not supported: a certificate that has such a name, where there is a
    constraint for it, is in error.

    Comparing is work: where the budget does not suffice, what has not been compared is in error.
*/
class NameConstraints
{
public:
    //! Without \a constraints everything is allowed.
    explicit NameConstraints(NameConstraintsHandle constraints);

    bool isEmpty() const;
    //! Whether there are any for host names or addresses.
    bool concernHosts() const;
    //! Returns how many comparisons a certificate with \a nameCount names takes at most.
    std::size_t comparisonsFor(std::size_t nameCount) const;

    //! Returns the errors of the certificate \a x509, which has \a names.
    PathErrors errorsOf(X509* x509, const std::vector<GeneralName>& names,
                        WorkBudget* budget) const;

    /*!
        Returns the errors of texts that could be taken for a host name: each must be allowed as a
        host name and, where it is an address, as an address. One that is neither is in error.
    */
    PathErrors errorsOfHostTexts(const std::vector<QByteArray>& texts, WorkBudget* budget) const;

private:
    //! What there is for one type of names.
    struct Subtrees
    {
        std::vector<GeneralName> permitted;
        std::vector<GeneralName> excluded;

        bool isEmpty() const { return permitted.empty() && excluded.empty(); }
    };
    static constexpr int TYPES = GEN_RID + 1;

    bool sortOut(STACK_OF(GENERAL_SUBTREE) * subtrees, std::vector<GeneralName> Subtrees::*target);
    PathErrors errorsOfName(const GeneralName& name, WorkBudget* budget) const;
    PathErrors errorsOfHostText(const QByteArray& text, WorkBudget* budget) const;
    PathErrors errorsOfDirectoryNames(X509* x509, std::size_t nameCount, WorkBudget* budget) const;

    Subtrees m_subtrees[TYPES];
    std::size_t m_count = 0; //!< Of subtrees of all types.
    std::size_t m_directoryCount = 0;
    std::size_t m_directoryBytes = 0;
    bool m_isInvalid = false; //!< There are no subtrees, or some that are limited in depth.
    NameConstraintsHandle m_directoryNames; //!< Null without constraints.
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_ALTERNATIVENAME_H
#define FERRULE_ALTERNATIVENAME_H

#include <QtCore/QString>
#include <QtNetwork/QHostAddress>

namespace vela {

/*!
    One of the names that a certificate is for, beside its subject.

    A plain record, handed out by `SslCertificate::alternativeNames()`:

    \code
    for (const vela::AlternativeName& name : certificate.alternativeNames()) {
        if (name.kind == vela::AlternativeName::DnsName && name.isValid)
            hosts->addItem(name.text);
    }
    \endcode

    \section showing Showing names to a person
    Whoever made the certificate chose the octets of the name, and may have meant to deceive.

    - #text holds printable ASCII characters and nothing else. A blank, a control character, NUL, an
      octet beyond ASCII, a quotation mark, "<", ">" and the backslash itself stand as "\x20", one
      group for each octet, two upper-case digits. A text without a backslash is the name, octet
      for octet; one with a backslash never was meant for reading. Nothing is cut off at a NUL.
    - International host names stay as they are encoded, "xn--bcher-kva.example". Decoded, they
   could look like any other name.
    - #isValid is false for whatever is no name of its kind. Say so beside it, or leave it out.
    - A URI may name one host before an "@" and lead to another, and any scheme is one: do not make
   it a link.
    - A text may be as long as the certificate. Elide it in the middle: where a host belongs to
   stands at its end.
    - Give it to a widget as `Qt::PlainText`, like everything that a peer sends: "&" is kept.
*/
struct AlternativeName
{
    enum Kind {
        DnsName,   //!< A host name, or a pattern like "*.example.com".
        IpAddress, //!< An address.
        Email,     //!< A mail address.
        Uri,       //!< A URI.
        Other      //!< Any other kind, such as a directory name.
    };

    Kind kind = Other;

    /*!
        Whether the name is what its kind allows. One that is not never matches.
        - #DnsName: a host name for which `SslCertificate::matchesHost()` can be true, or "*." and
          one with at least two labels. In particular no address, no period at the end.
        - #IpAddress: 4 or 16 octets.
        - #Email: something, "@" and a host name, all of it plain text.
        - #Uri: a scheme, ":" and more, all of it plain text.
        - #Other: never, since nothing is read of it.
    */
    bool isValid = false;

    //! The name, fit for showing; of an invalid address every octet as "\x7F"; empty for #Other.
    QString text;

    //! The address; null for other kinds, and where the name is not valid.
    QHostAddress address;
};

//! Compares everything. Two names with the same octets and kind are equal, letter case included.
inline bool operator==(const AlternativeName& a, const AlternativeName& b)
{
    return a.kind == b.kind && a.isValid == b.isValid && a.text == b.text && a.address == b.address;
}

inline bool operator!=(const AlternativeName& a, const AlternativeName& b)
{
    return !(a == b);
}

} // namespace vela

#endif

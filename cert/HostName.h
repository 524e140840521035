// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_HOSTNAME_H
#define FERRULE_HOSTNAME_H

#include <QtCore/QByteArray>

#include <string_view>

class QString;

namespace vela {

//! What a peer was asked for by: a name or an address, or neither when the text was no host.
struct HostName
{
    QByteArray name;    //!< ASCII in lower case, without the period at its end.
    QByteArray address; //!< 4 or 16 octets.
};

/*!
    Returns what \a text, given by the host program, asks for. Names beyond ASCII are converted as
    Qt does when it looks them up; of addresses, only forms that everybody reads alike count.
*/
HostName readHostName(const QString& text);

//! Returns whether \a text can be the name of a host, without a period at its end.
bool isHostName(std::string_view text);

//! Returns whether \a text is a host name, or "*." and one of at least two labels.
bool isHostPattern(std::string_view text);

/*!
    Returns whether \a pattern, of whatever octets and however long, is a pattern that stands for
    \a name, the one of a HostName. What is no pattern never does.
*/
bool matchesPattern(const QByteArray& name, std::string_view pattern);

} // namespace vela

#endif

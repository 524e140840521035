// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_ENDPOINT_H
#define FERRULE_EXAMPLES_ENDPOINT_H

#include <QtCore/QString>

/*! One end of a TCP connection: a host name or address without brackets, and a port. */
struct Endpoint
{
    QString host;
    quint16 port = 0;

    //! Reads "HOST:PORT", an IPv6 address in brackets. Returns false when \a text is not that.
    bool parse(const QString& text);

    //! Returns "HOST:PORT", an IPv6 address in brackets.
    QString text() const;
};

#endif

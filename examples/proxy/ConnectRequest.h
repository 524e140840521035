// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_CONNECTREQUEST_H
#define FERRULE_EXAMPLES_CONNECTREQUEST_H

#include "common/Endpoint.h"

#include <QtCore/QByteArray>

/*! What a client asks a proxy for. */
struct ConnectRequest
{
    //! No request may be longer than this.
    static constexpr int SIZE_LIMIT = 8 * 1024;

    Endpoint target;
    QByteArray credentials; //!< "user:password", empty without Basic authorisation.

    //! Returns the size of the header that \a data begins with, 0 when its end is not there yet.
    static int headerSize(const QByteArray& data);

    /*!
        Reads \a header. Returns the HTTP status to answer when it is not a `CONNECT` to a host and
        port, 200 when it is. The brackets of an IPv6 address may be missing, for there are clients
        that leave them out.
    */
    int parse(const QByteArray& header);

private:
    bool parseTarget(const QByteArray& text);
};

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_PROXYOPTION_H
#define FERRULE_EXAMPLES_PROXYOPTION_H

#include "common/Endpoint.h"

/*! The HTTP proxy that --proxy names; without a host there is none. */
struct ProxyOption
{
    Endpoint endpoint;
    QString user;
    QString password;

    bool isSet() const { return !endpoint.host.isEmpty(); }

    /*!
        Reads "[USER[:PASSWORD]@]HOST:PORT", user and password percent-encoded as in URLs. Returns
        an error text, null for success. The text does not repeat what may be a password.
    */
    QString parse(const QString& text);

private:
    QString parseCredentials(const QString& text);
};

#endif

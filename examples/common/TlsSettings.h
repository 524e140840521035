// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_TLSSETTINGS_H
#define FERRULE_EXAMPLES_TLSSETTINGS_H

#include <QtCore/QString>

/*!
    The files and ciphers of all sockets of the program.

    The library loads them into one TLS context that all sockets share, when the first socket that
    names them is set up. Both load functions set up a socket that is never connected. A program
    thus learns of an unusable file before it opens a connection, and every socket made afterwards
    works with these settings without naming them. They return an error text, null for success.
*/
struct TlsSettings
{
    QString certificate;
    QString key;
    QString caFile;
    QString caDirectory;
    QString ciphers;

    /*!
        Loads everything for clients. Sockets in mode Client load no certificate of their own, so
        it takes a socket in mode Server to bring the certificate and the key into the shared
        context; from there clients offer them to servers that ask. That socket also makes the
        context trust the authorities of OpenSSL's default locations.
    */
    QString loadForClients() const;

    //! Loads the certificate, the key and the ciphers. Every server socket names the files itself.
    QString loadForServers() const;
};

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_ENGINEORACLE_H
#define FERRULE_TESTS_ENGINEORACLE_H

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>

/*!
    What OpenSSL itself says to bad input, from contexts and engines of its own that share nothing
    with the library but the version of OpenSSL.
*/
namespace test {

enum class Role {
    Client,
    Server
};

/*!
    Returns the text of the handshake step that fails when given \a input, and that of the failure
    to read after it; empty when the step does not fail, one text when reading finds a clean end.
*/
QStringList engineErrors(Role role, const QByteArray& input);

QString cipherListError(const QByteArray& ciphers);
QString authoritiesError(const QString& file);
//! Returns the oldest error of loading a certificate, then a key, then checking that they match.
QString identityError(const QString& certificate, const QString& key);

} // namespace test

#endif

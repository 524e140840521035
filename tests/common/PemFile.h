// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PEMFILE_H
#define FERRULE_PEMFILE_H

#include <QtCore/QByteArray>
#include <QtCore/QFile>

namespace test {

/*! Returns the PEM block of a certificate, made from its \a der without OpenSSL. */
inline QByteArray toPem(const QByteArray& der)
{
    const QByteArray base64 = der.toBase64();
    QByteArray pem = "-----BEGIN CERTIFICATE-----\n";
    for (int i = 0; i < base64.size(); i += 64)
        pem += base64.mid(i, 64) + '\n';
    return pem + "-----END CERTIFICATE-----\n";
}

/*! Returns what is in a file that the test cannot do without. */
inline QByteArray contentOf(const QString& fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(fileName), qPrintable(file.errorString()));
    return file.readAll();
}

} // namespace test

#endif

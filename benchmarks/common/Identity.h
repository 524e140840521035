// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_IDENTITY_H
#define FERRULE_BENCH_IDENTITY_H

#include <QtCore/QTemporaryDir>

namespace bench {

/*!
    A self-signed certificate for localhost and its 2048-bit RSA key, made anew and kept as PEM
   files until the object goes. Other processes can be told the names of the files.
*/
class Identity
{
public:
    Identity();

    QString certificateFile() const;
    QString keyFile() const;

private:
    QTemporaryDir m_directory;
};

} // namespace bench

#endif

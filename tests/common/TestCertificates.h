// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTCERTIFICATES_H
#define FERRULE_TESTCERTIFICATES_H

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QPair>
#include <QtCore/QString>
#include <QtCore/QTemporaryDir>

#include <memory>

typedef struct evp_pkey_st EVP_PKEY;
typedef struct x509_st X509;

namespace test {

enum class KeyType {
    Rsa2048,
    Rsa512, //!< So short that it proves nothing.
    EcP256
};

/*! What a test wants of a certificate; the defaults make a valid end certificate. */
struct CertificateSpec
{
    QString commonName = QStringLiteral("localhost");
    //! When not empty, the whole subject in order, as (short name, value); commonName is not used.
    QList<QPair<QByteArray, QByteArray>> subject;
    qint64 notBeforeOffset = -24 * 3600; //!< Seconds from now.
    qint64 notAfterOffset = 365 * 86400; //!< Seconds from now.
    QByteArray notBeforeText;            //!< Overrides the offset: raw content, ended by "Z".
    QByteArray notAfterText;             //!< 13 characters make a UTCTime, 15 a GeneralizedTime.
    QByteArray serialHex = "01";
    int version = 2;              //!< As encoded: 2 is version 3, 0 is version 1.
    bool isAuthority = false;     //!< Adds critical basic constraints CA:TRUE and keyCertSign.
    bool deniesAuthority = false; //!< Adds critical basic constraints CA:FALSE.
    KeyType keyType = KeyType::EcP256;
};

/*! A certificate with its private key, both owned. Copies share them. */
class Identity
{
public:
    Identity() = default;

    X509* x509() const;
    EVP_PKEY* key() const;
    QByteArray certificatePem() const;
    QByteArray keyPem() const;
    QByteArray der() const;

private:
    friend Identity makeIdentity(const CertificateSpec& spec, const Identity* issuer);
    struct Data;
    std::shared_ptr<Data> m_data;
};

/*! Makes a certificate with a new key, signed by \a issuer, or self-signed without one. */
Identity makeIdentity(const CertificateSpec& spec, const Identity* issuer = nullptr);

/*!
    A directory of PEM files for one test, removed with the object. The paths stay valid that long.
*/
class PemDirectory
{
public:
    PemDirectory();

    //! Writes \a content to a new file called \a name and returns its path.
    QString write(const QString& name, const QByteArray& content) const;
    QString writeCertificate(const QString& name, const Identity& identity) const;
    QString writeKey(const QString& name, const Identity& identity) const;
    QString path() const;

private:
    QTemporaryDir m_directory;
};

} // namespace test

#endif

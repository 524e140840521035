// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SSLCERTIFICATE_H
#define FERRULE_SSLCERTIFICATE_H

#include <Ferrule/AlternativeName.h>
#include <Ferrule/CertCipher.h>
#include <Ferrule/Export.h>

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QHash>
#include <QtCore/QMultiMap>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <boost/shared_ptr.hpp>

class QIODevice;
class QTextStream;

struct asn1_string_st;
struct env_md_st;
struct evp_md_st;
struct x509_st;

namespace vela {

class SslCertificate;

/*!
    The shared pointer, possibly null, in which certificates travel. Registered with Qt as
    "SslCertificatePtr" when the library is loaded. Compare with SslCertificate::equals().
*/
using SslCertificatePtr = boost::shared_ptr<SslCertificate>;

//! Hashes the pointer, in agreement with its operator==, for `QHash` and `QSet`.
inline uint qHash(const SslCertificatePtr& certificate, uint seed = 0)
{
    return ::qHash(certificate.get(), seed);
}

/*!
    One X.509 certificate and, beside it, the cipher of the connection on which it was seen.

    \code
    auto certificate = vela::SslCertificatePtr(new vela::SslCertificate(pem.data(), pem.size()));
    if (!certificate->isEmpty())
        qDebug() << certificate->subjectCommonName() << certificate->sha1Digest().toHex();
    \endcode

    Fingerprints, name attributes and the public-key description are computed when the certificate
    is set; reading them later does not call OpenSSL. No operation reports an error: a parse that
    fails gives an empty object, and an empty object answers with empty strings, empty byte arrays,
    empty maps, 0 and invalid dates. OpenSSL's error queue is left as it was found, except that
    OpenSSL 3 forgets what is in it when reading a damaged key adds more than it can hold.

    \section ownership Copies do not own
    The handle is freed only by the object that was given ownership: by the constructor from PEM
    text, or by the constructor from a handle with \c owned set. A copy and an assigned object
    share the handle and do \e not own it; they dangle as soon as the source lets go of it. Pass
    an #SslCertificatePtr around instead of copying. Where a copy must outlive its source, make it
    with SslCertificateChain::ownedCopy().

    The `QObject` part is never copied: parent, name and thread stay those of the target.

    \section attributes Name attributes
    issuerAttributes() and subjectAttributes() hold OpenSSL's one-line form of the name
    ("/C=DE/O=Example/CN=host"), split at each "/" and then at the first "=". Nothing is unescaped:

    - A value that itself contains "/" is cut there. "OU=Research/Development" becomes "OU" with the
      value "Research" and a key "Development" with an empty value, and a name can thereby carry
      made-up attributes ("O=x/CN=bank" adds a "CN"). Where that matters, walk the name itself with
      `X509_get_subject_name(x509())` and `X509_NAME_get_entry()`.
    - Characters outside printable ASCII stand as "\xC3\xBC", one group for each encoded byte.
    - Keys keep their case but are looked up in upper case: issuerEMail() and subjectEMail() never
      find the "emailAddress" that OpenSSL writes. Read
      `subjectAttributes().value("emailAddress")` instead.

    \section hosts Host names
    matchesHost() follows RFC 6125, and with #AlternativeNamesOnly RFC 9525:

    \code
    if (result != vela::VerifyOk || !certificate.matchesHost(socket->peerName()))
        socket->close();
    \endcode

    - <b>Alternative names come first.</b> The common name counts where there is no host name,
      URI or service name (SRV) among them, be it a valid one or not, and never when the
      extension is malformed: not decodable, without an element, with octets behind it, or there
      twice. Of several common names only the last of the subject counts, and only in an
      encoding of one octet for each ASCII character.
    - <b>Names</b> are compared without regard to the case of ASCII letters. A label has 1 to 63
      letters, digits, hyphens and underscores, a name at most 253 characters, converted or not,
      and no number as its last label. One period at the end of \a name is left aside; in a
      certificate it is an error. What breaks one of these rules, by an embedded NUL for
      instance, is no host name and matches nothing.
    - <b>A wildcard</b> is the whole left-most label of the certificate's name and stands for
      exactly one label, be it an international one: "*.example.com" is for "www.example.com",
      not for "example.com" and "a.b.example.com". At least two labels follow it. Any other "*"
      matches nothing, that in \a name included. Which domains belong to everybody ("*.co.uk")
      is not known.
    - <b>International names</b> may be given as "b&uuml;cher.example" or
      "xn--bcher-kva.example"; the former is converted by `QUrl::toAce()`, as Qt does when it
      looks the name up, so what is compared is what was connected to. Certificates must have
      the latter; UTF-8 matches nothing.
    - <b>Addresses</b> are compared octet for octet with the certificate's addresses, never with
      host names, patterns or the common name, and "::ffff:192.0.2.1" is not 192.0.2.1. IPv4 is
      four decimal numbers without leading zeros; all else that some resolvers read ("127.1",
      "0x7f000001") matches nothing. IPv6 may stand in brackets. A zone ("fe80::1%eth0") is left
      aside for link-local addresses, since it has a meaning on this machine only; elsewhere it
      is an error.

    Time grows with the size of the certificate and no faster.

    \section coding PEM and DER
    The static functions work on handles, the member functions write the object's own certificate.
    Every handle that is returned belongs to the caller, who frees it with `X509_free`. PEM text is
    what OpenSSL writes: a line "-----BEGIN CERTIFICATE-----", Base64 in lines of 64 characters, a
    line "-----END CERTIFICATE-----", each ended by one line feed, nothing before or after. For a
    null handle nothing is written. Failures show in the result alone: a null handle, empty text.

    \section threads Threads
    An object may be read from several threads as long as none changes it. There are no locks.
*/
class FERRULE_EXPORT SslCertificate : public QObject
{
    Q_OBJECT

public:
    //! \name Well-known attribute keys
    //! \{
    static const QString ATTR_COMMON_NAME;       //!< "CN"
    static const QString ATTR_COUNTRY;           //!< "C"
    static const QString ATTR_EMAIL;             //!< "EMail"; see \ref attributes
    static const QString ATTR_LOCALITY;          //!< "L"
    static const QString ATTR_ORGANISATION;      //!< "O"
    static const QString ATTR_ORGANISATION_UNIT; //!< "OU"
    static const QString ATTR_STATE;             //!< "ST"
    //! \}

    //! Constructs an empty object.
    SslCertificate();

    /*!
        Wraps \a x509, which may be null. With \a owned the object frees it; without, it must
        outlive the object.
    */
    SslCertificate(x509_st* x509, bool owned);

    /*!
        Parses the first PEM certificate in the \a length bytes at \a data and owns it; empty when
        there is none or it is damaged. A block that is encrypted counts as damaged: nobody is ever
        asked for a pass phrase.
    */
    SslCertificate(const char* data, int length);

    /*!
        Wraps \a x509 without owning it and fills the cipher from \a description.

        \warning \a name, \a bits and \a version have no effect: the description, even an empty one,
        replaces them. Call setCipher() afterwards to set them.
    */
    SslCertificate(x509_st* x509, const QString& description, const QString& name, int bits,
                   const QString& version);

    /*!
        Shares the certificate of \a other without owning it; see \ref ownership. In the cipher of
        the copy, `authentication` is the public-key algorithm again, whatever \a other holds.
    */
    SslCertificate(const SslCertificate& other);

    //! Shares the certificate of \a other without owning it, and copies its cipher unchanged.
    SslCertificate& operator=(const SslCertificate& other);

    //! Frees the certificate if it is owned.
    ~SslCertificate() override;

    //! Returns the handle or null. It stays with its owner: do not free it.
    x509_st* x509();
    const x509_st* x509() const;

    //! Returns true if there is no certificate.
    bool isEmpty() const;

    //! Empties the object and frees an owned handle; `cipher().authenticationBits` alone stays.
    void clear();

    //! Returns the 16 raw bytes of the fingerprint, not hex text; empty when it cannot be computed.
    const QByteArray& md5Digest() const;
    //! Returns the 20 raw bytes of the fingerprint, not hex text; empty when it cannot be computed.
    const QByteArray& sha1Digest() const;

    //! Returns the fingerprint of \a x509, empty for null.
    static QByteArray md5Digest(const x509_st* x509);
    static QByteArray sha1Digest(const x509_st* x509);

    //! Returns the magnitude of the serial number as raw bytes, the most significant first.
    QByteArray serialNumber() const;

    //! Returns the version as it is encoded: 2 for a version 3 certificate, 0 for version 1.
    long version() const;

    /*!
        Returns the beginning of the validity period; 1970-01-01 UTC when the certificate's text is
        malformed, invalid only for an empty object.

        \warning Do not compare it with the current time without a correction, and do not rely on
        it where the exact moment counts:
        - The certificate's UTC digits are taken for local time: `QDateTime(d.date(), d.time(),
          Qt::UTC)` is the true moment, unless the digits fall into the hour that the local zone
          skips when summer time begins.
        - A zone offset ("+0100") is added in minutes as if they were seconds.
        - A GeneralizedTime, used from the year 2050 on, is read with its century as the year:
          "20600101000000Z" comes out in the year 2024.

        For the exact moment hand the notBefore of x509() to OpenSSL's `ASN1_TIME_diff()`.
    */
    QDateTime validFrom() const;

    //! Returns the end of the validity period, with all that is said about validFrom().
    QDateTime validUntil() const;

    /*!
        Compares both fingerprints, not the handles: two parses of one certificate are equal, and so
        are two empty objects.
    */
    bool operator==(const SslCertificate& other) const;
    bool operator!=(const SslCertificate& other) const;

    /*!
        Compares what \a a and \a b point to.

        \warning A null \a a equals anything: `equals(null, x)` is true while `equals(x, null)` is
        false. Test the left side with `if (a && equals(a, b))` where it may be null.
    */
    static bool equals(const SslCertificatePtr& a, const SslCertificatePtr& b);

    //! \name Name attributes
    //! See \ref attributes.
    //! \{

    //! Returns the value under the upper-cased \a key, the last one in the name, or an empty
    //! string.
    QString issuerAttribute(QString key) const;
    QString subjectAttribute(QString key) const;

    //! Returns all attributes; among equal keys the last one in the name comes first.
    const QMultiMap<QString, QString>& issuerAttributes() const;
    const QMultiMap<QString, QString>& subjectAttributes() const;

    /*!
        Returns the attributes as text, sorted by key. The first character of \a separators stands
        between attributes, the second between key and value; "/" and "=" where they are missing.
    */
    QString issuerString(const QString& separators = QString()) const;
    QString subjectString(const QString& separators = QString()) const;

    QString issuerCommonName() const;
    QString issuerCountry() const;
    QString issuerEMail() const; //!< Does not find "emailAddress".
    QString issuerLocality() const;
    QString issuerOrganisation() const;
    QString issuerOrganisationUnit() const;
    QString issuerState() const;

    QString subjectCommonName() const;
    QString subjectCountry() const;
    QString subjectEMail() const; //!< Does not find "emailAddress".
    QString subjectLocality() const;
    QString subjectOrganisation() const;
    QString subjectOrganisationUnit() const;
    QString subjectState() const;
    //! \}

    //! \name The cipher
    //! Describes a connection. Only the public-key algorithm and size, which setting a certificate
    //! fills in, come from the certificate.
    //! \{
    const CertCipher& cipher() const;

    //! Sets the name, the secret bits and the protocol version, nothing else.
    void setCipher(const QString& name, int bits, const QString& version);

    /*!
        Replaces the cipher by what OpenSSL's one-line description says, for example "AES256-SHA
        SSLv3 Kx=RSA Au=RSA Enc=AES(256) Mac=SHA1". The secret bits become 0; the key size stays.
        Words are told apart by their position: one that is missing shifts all that follow.
    */
    void setCipherDescription(const QString& description);
    void setCipherDescription(const QStringList& words);

    /*!
        Returns the cipher as text for a human reader, the items joined by \a separator:
        "Cipher=AES256-SHA, 256 bit, Protocol=SSLv3, ...". Empty items are left out.
    */
    QString cipherDescription(const QString& separator) const;
    //! \}

    //! \name PEM and DER
    //! See \ref coding.
    //! \{

    /*!
        Returns the first certificate in the PEM text of \a length bytes at \a data, or null when
        there is none or it is damaged. With a \a length of -1 the text ends at its NUL. About
        encrypted blocks see the constructor from PEM text.
    */
    static x509_st* readPem(const char* data, int length);

    //! As above, from a file; one that cannot be opened reads as empty.
    static x509_st* readPem(const QString& fileName);

    //! Returns the certificate that begins at \a data, or null; bytes after it are ignored.
    static x509_st* readDer(const unsigned char* data, int length);

    //! Returns the encoded certificate, empty when there is none or it cannot be encoded.
    static QByteArray encodeDer(x509_st* x509);

    static QString encodePem(x509_st* x509);
    QString encodePem() const;

    /*!
        Writes to the beginning of the file, which is created if need be.

        \warning A file that exists is not truncated: when it was longer, its tail stays behind
        the new text. `QFile::remove(fileName)` first, or write to a `QSaveFile` with the form for
        devices. A file that cannot be opened is not written, and nothing tells.
    */
    static void writePem(x509_st* x509, const QString& fileName);
    void writePem(const QString& fileName) const;

    //! Writes to \a device, which must be open, or to \a stream.
    static void writePem(x509_st* x509, QIODevice* device);
    static void writePem(x509_st* x509, QTextStream* stream);
    void writePem(QIODevice* device) const;
    void writePem(QTextStream* stream) const;
    //! \}

    /*!
        The ids under which Qt knows, in this order, "SslCertificatePtr",
       "vela::SslCertificateChain", "vela::CertVerify", "vela::CertAccept" and "vela::CertHostName"
       while the library is loaded.
    */
    static const int g_metaTypes[5];

    //! \name The names that it is for
    //! See \ref hosts.
    //! \{

    //! What matchesHost() looks at.
    enum HostNameCheck {
        AllowCommonName,     //!< The common name, too, where no alternative name is for hosts.
        AlternativeNamesOnly //!< Alternative names and nothing else, as RFC 9525 has it.
    };

    /*!
        Returns the alternative names of the subject in their order, decoded anew with each call.
        Empty when there are none, and when the extension is malformed; see \ref hosts. Read about
        \ref showing "showing names" before they meet a person.
    */
    QVector<AlternativeName> alternativeNames() const;

    /*!
        Returns true if the certificate is for the host \a name, which is an ASCII or international
        host name or an address, as given to `connectToHost()`. Says nothing about whether the
        certificate can be trusted. Always false for an empty object and for a \a name that is no
        host.
    */
    bool matchesHost(const QString& name, HostNameCheck check = AllowCommonName) const;
    //! \}

protected:
    /*!
        Replaces the certificate and computes what derives from it. Setting the handle that is held
        already changes nothing, not even the ownership.
    */
    void setX509(x509_st* x509, bool owned);

    //! Replaces the fingerprint that comparisons use, without touching the certificate.
    void setMd5Digest(const QByteArray& digest);
    void setSha1Digest(const QByteArray& digest);

    /*!
        Returns the fingerprint of \a x509 made with \a digest (an `EVP_MD`), empty for null and
        when it cannot be computed.
    */
    static QByteArray digest(const x509_st* x509, const env_md_st* digest);
    //! The same under the name that OpenSSL 3 has for `EVP_MD`; only the engine's own is defined.
    static QByteArray digest(const x509_st* x509, const evp_md_st* digest);

    //! Returns the content of \a string, empty for null.
    static QByteArray toByteArray(asn1_string_st* string);

    //! Adds the attributes of the one-line name \a text to \a map.
    static void parseAttributes(const QString& text, QMultiMap<QString, QString>& map);

    //! Writes \a map as text; see issuerString().
    static QString concatAttributes(const QMultiMap<QString, QString>& map,
                                    const QString& separators);

private:
    void releaseX509();
    void readPublicKey();

    x509_st* m_x509 = nullptr;
    bool m_owned = false;
    QByteArray m_sha1Digest;
    QByteArray m_md5Digest;
    QMultiMap<QString, QString> m_issuerAttributes;
    QMultiMap<QString, QString> m_subjectAttributes;
    CertCipher m_cipher;
};

} // namespace vela

#endif

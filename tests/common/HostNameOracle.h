// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_HOSTNAMEORACLE_H
#define FERRULE_TESTS_HOSTNAMEORACLE_H

#include "support/OpenSslHandles.h"

#include <QtCore/QByteArray>
#include <QtCore/QRegularExpression>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QUrl>

#include <openssl/err.h>
#include <openssl/x509v3.h>

namespace test {

/*!
    Holds what the library says of a certificate and a host against what the engine says, and knows
    where the two differ on purpose. Written with regular expressions, which the library is not.
*/
class HostNameOracle
{
public:
    HostNameOracle(X509* x509, const QString& host)
        : m_x509(x509)
        , m_host(host)
    {
        const bool isBracketed = host.startsWith(QLatin1Char('['));
        QString canonical = isBracketed ? host.mid(1, host.size() - 2) : host;
        canonical.remove(QRegularExpression(QStringLiteral("(?<=[0-9a-fA-F:])%[-\\w.~]+$")));
        const bool isAscii = host.toLatin1() == host.toUtf8();
        m_name = isAscii ? canonical.toLatin1() : QUrl::toAce(canonical);
        if (m_name.endsWith('.'))
            m_name.chop(1);
        m_addressResult =
            m_name.contains('\0') ? -2 : X509_check_ip_asc(x509, m_name.constData(), 0);
        readNames();
        ERR_clear_error();
    }

    //! What the engine says, asked about the name in the form that it understands.
    bool engineMatches() const
    {
        if (m_addressResult != UNREADABLE)
            return m_addressResult == 1;
        return !m_name.isEmpty()
               && X509_check_host(m_x509, m_name.constData(), std::size_t(m_name.size()),
                                  X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS, nullptr)
                      == 1;
    }

    /*!
        Returns why the library says \a matched while the engine says the opposite; an empty text
        when there is no reason for it.
    */
    QString reasonOfDifference(bool matched) const
    {
        if (matched)
            return isOddForWildcard() ? QStringLiteral("odd label and wildcard") : QString();
        if (m_addressResult != UNREADABLE)
            return isAddress() ? QString() : QStringLiteral("odd form of an address");
        if (!isHostName(m_name))
            return QStringLiteral("no host name");
        if (m_isMalformed)
            return QStringLiteral("malformed extension");
        if (m_hasHostNames)
            return QString();
        if (m_hasServices)
            return QStringLiteral("common name beside a URI or a service");
        if (m_lastIsWide)
            return QStringLiteral("common name of wide characters");
        return m_commonNames > 1 ? QStringLiteral("not the last common name") : QString();
    }

    //! Whether \a name can be a host's.
    static bool isHostName(const QByteArray& name)
    {
        static const QRegularExpression expression(
            QStringLiteral("\\A(?=[\\x00-\\x7F]{1,253}\\z)([-_a-zA-Z0-9]{1,63}\\.)*(?!([0-9]+|0[xX]"
                           "[0-9a-fA-F]*)\\z)"
                           "[-_a-zA-Z0-9]{1,63}\\z"));
        return expression.match(QString::fromLatin1(name.constData(), name.size())).hasMatch();
    }

private:
    static constexpr int UNREADABLE = -2;

    void readNames()
    {
        X509_NAME* const subject = X509_get_subject_name(m_x509);
        for (int i = -1; (i = X509_NAME_get_index_by_NID(subject, NID_commonName, i)) >= 0;) {
            ++m_commonNames;
            m_lastIsWide =
                X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, i))->type == V_ASN1_BMPSTRING;
        }
        const int index = X509_get_ext_by_NID(m_x509, NID_subject_alt_name, -1);
        if (index < 0)
            return;
        const ASN1_OCTET_STRING* const content =
            X509_EXTENSION_get_data(X509_get_ext(m_x509, index));
        const unsigned char* cursor = content->data;
        GENERAL_NAMES* const names = d2i_GENERAL_NAMES(nullptr, &cursor, content->length);
        const int count = names ? sk_GENERAL_NAME_num(names) : 0;
        m_isMalformed = count == 0 || cursor - content->data != content->length
                        || X509_get_ext_by_NID(m_x509, NID_subject_alt_name, index) >= 0;
        for (int i = 0; i < count; ++i) {
            const int type = sk_GENERAL_NAME_value(names, i)->type;
            m_hasHostNames = m_hasHostNames || type == GEN_DNS;
            m_hasServices = m_hasServices || type == GEN_URI || type == GEN_OTHERNAME;
        }
        GENERAL_NAMES_free(names);
    }

    //! The engine's wildcards have nothing to do with these labels, browsers' have.
    bool isOddForWildcard() const
    {
        static const QRegularExpression odd(QStringLiteral("_|(^|\\.)-|-(\\.|$)"));
        return m_name.contains('.') && odd.match(QString::fromLatin1(m_name)).hasMatch();
    }

    //! Whether the host is an address in a form that everybody reads alike.
    bool isAddress() const
    {
        static const QRegularExpression ipv4(QStringLiteral(
            "\\A((0|[1-9][0-9]?|1[0-9]{2}|2[0-4][0-9]|25[0-5])(\\.(?!\\z)|\\z)){4}\\z"));
        static const QRegularExpression ipv6(
            QStringLiteral("\\A(\\[[0-9a-fA-F:.]+\\]|[0-9a-fA-F:.]+)\\z"));
        static const QRegularExpression linkLocal(
            QStringLiteral(
                "\\A(\\[fe[89ab][0-9a-f:.]+%[-\\w.~]+\\]|fe[89ab][0-9a-f:.]+%[-\\w.~]+)\\z"),
            QRegularExpression::CaseInsensitiveOption);
        const bool hasColon = m_host.contains(QLatin1Char(':'));
        return hasColon ? ipv6.match(m_host).hasMatch() || linkLocal.match(m_host).hasMatch()
                        : ipv4.match(m_host).hasMatch();
    }

    X509* m_x509;
    QString m_host;
    QByteArray m_name;
    int m_addressResult = UNREADABLE;
    int m_commonNames = 0;
    bool m_lastIsWide = false;
    bool m_isMalformed = false;
    bool m_hasHostNames = false;
    bool m_hasServices = false;
};

} // namespace test

#endif

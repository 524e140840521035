// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/SslCertificate.h>

namespace vela {

void SslCertificate::parseAttributes(const QString& text, QMultiMap<QString, QString>& map)
{
    const QStringList parts = text.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    for (const QString& part : parts) {
        const int separator = part.indexOf(QLatin1Char('='));
        if (separator < 0)
            map.insert(part, QString());
        else
            map.insert(part.left(separator), part.mid(separator + 1));
    }
}

QString SslCertificate::concatAttributes(const QMultiMap<QString, QString>& map,
                                         const QString& separators)
{
    const QChar pairSeparator = separators.isEmpty() ? QLatin1Char('/') : separators.at(0);
    const QChar valueSeparator = separators.size() < 2 ? QLatin1Char('=') : separators.at(1);
    QString text;
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry) {
        if (entry != map.cbegin())
            text += pairSeparator;
        text += entry.key();
        if (!entry.value().isEmpty())
            text += valueSeparator + entry.value();
    }
    return text;
}

QString SslCertificate::issuerAttribute(QString key) const
{
    return m_issuerAttributes.value(key.toUpper());
}

QString SslCertificate::subjectAttribute(QString key) const
{
    return m_subjectAttributes.value(key.toUpper());
}

const QMultiMap<QString, QString>& SslCertificate::issuerAttributes() const
{
    return m_issuerAttributes;
}

const QMultiMap<QString, QString>& SslCertificate::subjectAttributes() const
{
    return m_subjectAttributes;
}

QString SslCertificate::issuerString(const QString& separators) const
{
    return concatAttributes(m_issuerAttributes, separators);
}

QString SslCertificate::subjectString(const QString& separators) const
{
    return concatAttributes(m_subjectAttributes, separators);
}

QString SslCertificate::issuerCommonName() const
{
    return issuerAttribute(ATTR_COMMON_NAME);
}

QString SslCertificate::issuerCountry() const
{
    return issuerAttribute(ATTR_COUNTRY);
}

QString SslCertificate::issuerEMail() const
{
    return issuerAttribute(ATTR_EMAIL);
}

QString SslCertificate::issuerLocality() const
{
    return issuerAttribute(ATTR_LOCALITY);
}

QString SslCertificate::issuerOrganisation() const
{
    return issuerAttribute(ATTR_ORGANISATION);
}

QString SslCertificate::issuerOrganisationUnit() const
{
    return issuerAttribute(ATTR_ORGANISATION_UNIT);
}

QString SslCertificate::issuerState() const
{
    return issuerAttribute(ATTR_STATE);
}

QString SslCertificate::subjectCommonName() const
{
    return subjectAttribute(ATTR_COMMON_NAME);
}

QString SslCertificate::subjectCountry() const
{
    return subjectAttribute(ATTR_COUNTRY);
}

QString SslCertificate::subjectEMail() const
{
    return subjectAttribute(ATTR_EMAIL);
}

QString SslCertificate::subjectLocality() const
{
    return subjectAttribute(ATTR_LOCALITY);
}

QString SslCertificate::subjectOrganisation() const
{
    return subjectAttribute(ATTR_ORGANISATION);
}

QString SslCertificate::subjectOrganisationUnit() const
{
    return subjectAttribute(ATTR_ORGANISATION_UNIT);
}

QString SslCertificate::subjectState() const
{
    return subjectAttribute(ATTR_STATE);
}

} // namespace vela

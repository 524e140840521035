// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/SslCertificate.h>

namespace vela {

namespace {

//! Returns the word at \a position, without the "label=" in front of it where there is one.
QString field(const QStringList& words, int position, const QString& label = QString())
{
    if (position >= words.size())
        return QString();
    const QString& word = words.at(position);
    const int labelStart = label.isEmpty() ? -1 : word.indexOf(label);
    const int equals =
        labelStart < 0 ? -1 : word.indexOf(QLatin1Char('='), labelStart + label.size());
    return word.mid(equals + 1).trimmed();
}

void appendItem(QStringList& items, const char* label, const QString& value)
{
    if (!value.isEmpty())
        items.append(QString::fromLatin1(label) + QLatin1Char('=') + value);
}

} // namespace

const CertCipher& SslCertificate::cipher() const
{
    return m_cipher;
}

void SslCertificate::setCipher(const QString& name, int bits, const QString& version)
{
    m_cipher.name = name;
    m_cipher.bits = bits;
    m_cipher.protocol = version;
}

void SslCertificate::setCipherDescription(const QString& description)
{
    setCipherDescription(description.split(QLatin1Char(' '), Qt::SkipEmptyParts));
}

void SslCertificate::setCipherDescription(const QStringList& words)
{
    m_cipher.name = field(words, 0);
    m_cipher.bits = 0;
    m_cipher.protocol = field(words, 1);
    m_cipher.keyExchange = field(words, 2, QLatin1String("Kx"));
    m_cipher.authentication = field(words, 3, QLatin1String("Au"));
    m_cipher.encryption = field(words, 4, QLatin1String("Enc"));
    m_cipher.mac = field(words, 5, QLatin1String("Mac"));
    m_cipher.exportable =
        field(words, 6).compare(QLatin1String("export"), Qt::CaseInsensitive) == 0;
}

QString SslCertificate::cipherDescription(const QString& separator) const
{
    QStringList items;
    appendItem(items, "Cipher", m_cipher.name);
    if (m_cipher.bits > 0)
        items.append(QString::number(m_cipher.bits) + QLatin1String(" bit"));
    appendItem(items, "Protocol", m_cipher.protocol);
    appendItem(items, "Key Exchange", m_cipher.keyExchange);
    appendItem(items, "Authentication", m_cipher.authentication);
    appendItem(items, "Encryption", m_cipher.encryption);
    appendItem(items, "MAC", m_cipher.mac);
    if (m_cipher.exportable)
        items.append(QString::fromLatin1("export"));
    return items.join(separator);
}

} // namespace vela

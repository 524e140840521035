// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/TlsServer.h"

#include <QtCore/QDir>
#include <QtCore/QMap>
#include <QtCore/QRegularExpression>
#include <QtCore/QTranslator>
#include <QtCore/QXmlStreamReader>
#include <QtTest/QtTest>

using vela::SslSocket;

namespace {

const char* const CATALOGUE_CONTEXT = "SslSocket";
const char* const SOCKET_CONTEXT = "vela::SslSocket";
const QString FRENCH = QStringLiteral(":/Translations/Ferrule_fr.qm");
const QString GERMAN = QStringLiteral(":/Translations/Ferrule_de.qm");

const char* const MESSAGES[] = {
    "Also, the host name \"%0\" does not match the host name in the certificate \"%1\".",
    "An unknown error occurred",
    "Authority and issuer serial number mismatch",
    "Authority and subject key identifier mismatch",
    "Caution, the host name \"%0\" does not match the host name in the certificate \"%1\".",
    "Certificate not trusted",
    "Certificate rejected",
    "Certificate signature failure",
    "Error creating SSL session",
    "Error creating SSL session, %1",
    "Error loading certificate, %1",
    "Error loading private key, %1",
    "Error setting pooled SSL session",
    "Failed to load the list of trusted CAs: %1",
    "Failed to read from SSL, %1",
    "Failed to write protocol data to BIO",
    "Format error in certificate's notAfter field",
    "Format error in certificate's notBefore field",
    "Invalid CA certificate",
    "Invalid or empty cipher list, %1",
    "Key usage does not include certificate signing",
    "Out of memory",
    "Path length constraint exceeded",
    "Private key does not certify public key, %1",
    "Private key required in server mode",
    "QtSslSocket: Certificate required in server mode",
    "SSL error: %1",
    "Self-signed certificate",
    "Self-signed certificate in certificate chain",
    "Subject issuer mismatch",
    "The SSL certificate expired on %1.",
    "The SSL certificate has been verified.",
    "The SSL certificate is not valid until %1.",
    "The certificate has expired",
    "The certificate is not yet valid",
    "Unable to decode issuer public key",
    "Unable to decrypt certificate's signature",
    "Unable to get issuer certificate",
    "Unable to get local issuer certificate",
    "Unable to verify the first certificate",
    "Unknown error",
    "Unsupported certificate purpose",
};

QStringList messages()
{
    QStringList texts;
    for (const char* text : MESSAGES)
        texts << QString::fromLatin1(text);
    return texts;
}

QByteArray contents(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s cannot be read", qPrintable(path));
    return file.readAll();
}

struct Message
{
    QString context;
    QString source;
    QString translation;
};

QVector<Message> readTranslationSource()
{
    QXmlStreamReader xml(contents(QStringLiteral(FERRULE_SOURCE "/resources/Ferrule_fr.ts")));
    QVector<Message> found;
    QString context;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == QLatin1String("name"))
            context = xml.readElementText();
        else if (xml.name() == QLatin1String("source"))
            found << Message{context, xml.readElementText(), QString()};
        else if (xml.name() == QLatin1String("translation"))
            found.last().translation = xml.readElementText();
    }
    if (xml.hasError())
        qFatal("the translation source: %s", qPrintable(xml.errorString()));
    return found;
}

//! The texts that the socket's sources give to tr(), each once, sorted.
QStringList textsInSources()
{
    const QRegularExpression call(QStringLiteral(R"RX(\btr\(((?:\s*"(?:[^"\\]|\\.)*")+)\s*\))RX"));
    const QRegularExpression joint(QStringLiteral(R"("\s*")"));
    QStringList texts;
    const QDir directory(QStringLiteral(FERRULE_SOURCE "/socket"));
    for (const QString& name : directory.entryList({QStringLiteral("*.cpp")}, QDir::Files)) {
        auto matches = call.globalMatch(QString::fromUtf8(contents(directory.filePath(name))));
        while (matches.hasNext()) {
            QString text = matches.next().captured(1).trimmed();
            // An escaped quotation mark must not look like a joint between two literals.
            text.replace(QLatin1String("\\\""), QString(QChar::ObjectReplacementCharacter));
            text.remove(joint);
            text = text.mid(1, text.size() - 2);
            texts << text.replace(QChar::ObjectReplacementCharacter, QLatin1Char('"'));
        }
    }
    texts.removeDuplicates();
    texts.sort();
    return texts;
}

QStringList placeholders(const QString& text)
{
    QStringList found;
    auto matches = QRegularExpression(QStringLiteral("%\\d")).globalMatch(text);
    while (matches.hasNext())
        found << matches.next().captured();
    found.sort();
    return found;
}

/*
    What a host installs: the catalogue knows the socket's messages by the name of the class alone.
*/
class SocketTranslator : public QTranslator
{
public:
    QString translate(const char* context, const char* text, const char* comment,
                      int n) const override
    {
        const bool isSocket = qstrcmp(context, SOCKET_CONTEXT) == 0;
        return QTranslator::translate(isSocket ? CATALOGUE_CONTEXT : context, text, comment, n);
    }
};

QString failureOfServerWithoutCertificate()
{
    SslSocket socket(SslSocket::Server);
    socket.sslAccept();
    return socket.errorString();
}

QString failureOfUnknownCipher()
{
    SslSocket socket(SslSocket::Client);
    socket.setCiphers(QStringLiteral("no such cipher"));
    socket.sslConnect();
    return socket.errorString();
}

} // namespace

class TranslationsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void frenchSourceHoldsTheMessagesAlone();
    void socketUsesEveryMessageAndNoOther();
    void messageIsTranslated_data();
    void messageIsTranslated();
    void messageIsUnknownUnderTheFullClassName_data();
    void messageIsUnknownUnderTheFullClassName();
    void messageIsDeliveredInEnglishWithoutTranslator_data();
    void messageIsDeliveredInEnglishWithoutTranslator();
    void messageReachesTheHostInFrench_data();
    void messageReachesTheHostInFrench();
    void frenchIsSetAsFrench_data();
    void frenchIsSetAsFrench();
    void frenchCatalogueHasItsThreeSections();
    void germanCatalogueHasItsBytes();
    void germanCatalogueIsValidAndEmpty();
    void socketSpeaksEnglishByItself();
    void socketSpeaksFrenchToHostsThatWantIt();
    void verdictIsDescribedInFrench();
    void cataloguesAsTheyAreLeaveTheSocketEnglish_data();
    void cataloguesAsTheyAreLeaveTheSocketEnglish();

private:
    void addMessageRows();

    QMap<QString, QString> m_french; // By source text.
};

void TranslationsTest::initTestCase()
{
    for (const Message& message : readTranslationSource())
        m_french.insert(message.source, message.translation);
}

void TranslationsTest::addMessageRows()
{
    QTest::addColumn<QByteArray>("text");
    for (const char* text : MESSAGES)
        QTest::newRow(text) << QByteArray(text);
}

void TranslationsTest::frenchSourceHoldsTheMessagesAlone()
{
    QStringList sources;
    for (const Message& message : readTranslationSource()) {
        QCOMPARE(message.context, QString::fromLatin1(CATALOGUE_CONTEXT));
        sources << message.source;
    }
    sources.sort();
    QCOMPARE(sources, messages());
    QCOMPARE(sources.size(), 42);
}

void TranslationsTest::socketUsesEveryMessageAndNoOther()
{
    QCOMPARE(textsInSources(), messages());
}

void TranslationsTest::messageIsTranslated_data()
{
    addMessageRows();
}

void TranslationsTest::messageIsTranslated()
{
    QFETCH(QByteArray, text);
    QTranslator translator;
    QVERIFY(translator.load(FRENCH));
    const QString source = QString::fromLatin1(text);
    const QString translation = translator.translate(CATALOGUE_CONTEXT, text);
    QVERIFY(!translation.isEmpty());
    QCOMPARE(translation, m_french.value(source));
    QVERIFY(translation != source);
    QCOMPARE(placeholders(translation), placeholders(source));
}

void TranslationsTest::messageIsUnknownUnderTheFullClassName_data()
{
    addMessageRows();
}

void TranslationsTest::messageIsUnknownUnderTheFullClassName()
{
    QFETCH(QByteArray, text);
    QTranslator translator;
    QVERIFY(translator.load(FRENCH));
    QVERIFY(translator.translate(SOCKET_CONTEXT, text).isEmpty());
}

void TranslationsTest::messageIsDeliveredInEnglishWithoutTranslator_data()
{
    addMessageRows();
}

void TranslationsTest::messageIsDeliveredInEnglishWithoutTranslator()
{
    QFETCH(QByteArray, text);
    QCOMPARE(SslSocket::tr(text), QString::fromLatin1(text));
    QCOMPARE(QCoreApplication::translate(SOCKET_CONTEXT, text), QString::fromLatin1(text));
}

void TranslationsTest::messageReachesTheHostInFrench_data()
{
    addMessageRows();
}

void TranslationsTest::messageReachesTheHostInFrench()
{
    QFETCH(QByteArray, text);
    SocketTranslator translator;
    QVERIFY(translator.load(FRENCH));
    QVERIFY(QCoreApplication::installTranslator(&translator));
    QCOMPARE(SslSocket::tr(text), m_french.value(QString::fromLatin1(text)));
}

void TranslationsTest::frenchIsSetAsFrench_data()
{
    addMessageRows();
}

void TranslationsTest::frenchIsSetAsFrench()
{
    QFETCH(QByteArray, text);
    const QString french = m_french.value(QString::fromLatin1(text));
    QVERIFY(!french.isEmpty());
    const QRegularExpression english(QStringLiteral("[\"'\u201C\u201D]"));
    const QRegularExpression tight(
        QStringLiteral("[^\u00A0\u202F][:;?!\u00BB]|\u00AB[^\u00A0\u202F]"));
    QVERIFY2(!french.contains(english), qPrintable(french));
    QVERIFY2(!french.contains(tight), qPrintable(french));
    QCOMPARE(french.endsWith(QLatin1Char('.')), text.endsWith('.'));
}

void TranslationsTest::frenchCatalogueHasItsThreeSections()
{
    const QByteArray catalogue = contents(FRENCH);
    QByteArray tags;
    QDataStream stream(catalogue.mid(16));
    while (!stream.atEnd()) {
        quint8 tag = 0;
        QByteArray section;
        stream >> tag >> section;
        QCOMPARE(stream.status(), QDataStream::Ok);
        tags += char(tag);
        if (tag == 0x42) // A hash and an offset, of four bytes each, for each message.
            QCOMPARE(section.size(), 42 * 8);
    }
    QCOMPARE(tags.toHex(), QByteArray("426988")); // Hashes, messages, plural rules.
}

void TranslationsTest::germanCatalogueHasItsBytes()
{
    QCOMPARE(contents(GERMAN).toHex(),
             QByteArray("3cb86418caef9c95cd211cbf60a1bddd" // Magic number.
                        "88"
                        "00000002"
                        "0101")); // Plural: n is not 1.
}

void TranslationsTest::germanCatalogueIsValidAndEmpty()
{
    QTranslator translator;
    QVERIFY(translator.load(GERMAN));
    QVERIFY(translator.isEmpty());
    for (const char* text : MESSAGES) {
        QVERIFY(translator.translate(CATALOGUE_CONTEXT, text).isEmpty());
        QVERIFY(translator.translate(SOCKET_CONTEXT, text).isEmpty());
    }
}

void TranslationsTest::socketSpeaksEnglishByItself()
{
    QCOMPARE(failureOfServerWithoutCertificate(),
             QStringLiteral("QtSslSocket: Certificate required in server mode"));
    QVERIFY(failureOfUnknownCipher().startsWith(
        QStringLiteral("Invalid or empty cipher list, error:")));
}

void TranslationsTest::socketSpeaksFrenchToHostsThatWantIt()
{
    {
        SocketTranslator translator;
        QVERIFY(translator.load(FRENCH));
        QVERIFY(QCoreApplication::installTranslator(&translator));
        QCOMPARE(failureOfServerWithoutCertificate(),
                 QStringLiteral("QtSslSocket\u00A0: certificat requis en mode serveur"));
        QVERIFY(failureOfUnknownCipher().startsWith(
            QStringLiteral("Liste de suites de chiffrement vide ou non valide\u00A0: error:")));
    }
    socketSpeaksEnglishByItself();
}

void TranslationsTest::verdictIsDescribedInFrench()
{
    SocketTranslator translator;
    QVERIFY(translator.load(FRENCH));
    QVERIFY(QCoreApplication::installTranslator(&translator));
    test::TlsServer server;
    SslSocket client(SslSocket::Client);
    QString description;
    connect(&client, &SslSocket::connectionVerificationDone, this,
            [&](vela::CertVerify, bool, const QString& text) { description = text; });
    client.connectToHost(QStringLiteral("localhost"), server.serverPort());
    QTRY_VERIFY(!description.isEmpty());
    QCOMPARE(description, QStringLiteral("Certificat autosigné"));
}

void TranslationsTest::cataloguesAsTheyAreLeaveTheSocketEnglish_data()
{
    QTest::addColumn<QString>("catalogue");
    QTest::newRow("French") << FRENCH;
    QTest::newRow("German") << GERMAN;
}

void TranslationsTest::cataloguesAsTheyAreLeaveTheSocketEnglish()
{
    QFETCH(QString, catalogue);
    QTranslator translator;
    QVERIFY(translator.load(catalogue));
    QCoreApplication::installTranslator(&translator);
    socketSpeaksEnglishByItself();
}

QTEST_GUILESS_MAIN(TranslationsTest)
#include "tst_translations.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "support/NameOneline.h"
#include "support/OpenSslHandles.h"

#include <openssl/crypto.h>
#include <openssl/objects.h>

#include <QtCore/QRandomGenerator>
#include <QtTest/QtTest>

using vela::nameOneline;

namespace {

using Name = std::unique_ptr<X509_NAME, vela::OpenSslDeleter<X509_NAME_free>>;
using Object = std::unique_ptr<ASN1_OBJECT, vela::OpenSslDeleter<ASN1_OBJECT_free>>;

constexpr int NEW_PART = 0;
constexpr int SAME_PART = -1;

//! Appends an attribute with exactly this string type and these bytes, possible or not.
void append(X509_NAME* name, const char* field, int type, const QByteArray& value,
            int set = NEW_PART)
{
    const Object object(OBJ_txt2obj(field, 0));
    const auto* bytes = reinterpret_cast<const unsigned char*>(value.constData());
    if (!object
        || !X509_NAME_add_entry_by_OBJ(name, object.get(), V_ASN1_UTF8STRING,
                                       const_cast<unsigned char*>(bytes), value.size(), -1, set))
        qFatal("cannot append %s", field);
    // Adding an entry copies it by way of its encoding, which takes the usual types only.
    const int last = X509_NAME_entry_count(name) - 1;
    X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, last))->type = type;
}

//! What happens to a name in a certificate: written and parsed again.
Name parsedAgain(X509_NAME* name)
{
    unsigned char* der = nullptr;
    const int length = i2d_X509_NAME(name, &der);
    const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owner(
        der, [](unsigned char* memory) { OPENSSL_free(memory); });
    const unsigned char* position = der;
    return Name(d2i_X509_NAME(nullptr, &position, length));
}

bool isReferenceEngine()
{
    return SSLeay() < 0x10100000L;
}

} // namespace

class NameOnelineTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void oneAttribute_data();
    void oneAttribute();
    void attributesFollowEachOtherInOrder();
    void multiValuedPartsAreNotJoined();
    void emptyNameIsEmptyText();
    void nullNameIsNamedAsSuch();
    void overlongNameGivesEmptyText();
    void longObjectIdentifierIsCut();
    void everyByteIsWrittenOrEscaped();
    void namesAgreeWithTheReferenceEngine();
};

void NameOnelineTest::oneAttribute_data()
{
    QTest::addColumn<QByteArray>("field");
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* title, const char* field, int type, const QByteArray& value,
                        const char* expected) {
        QTest::newRow(title) << QByteArray(field) << type << value << QString::fromLatin1(expected);
    };
    row("common name", "2.5.4.3", V_ASN1_UTF8STRING, "host", "/CN=host");
    row("e-mail", "1.2.840.113549.1.9.1", V_ASN1_IA5STRING, "a@b", "/emailAddress=a@b");
    row("user id", "0.9.2342.19200300.100.1.1", V_ASN1_UTF8STRING, "me", "/UID=me");
    row("domain", "0.9.2342.19200300.100.1.25", V_ASN1_IA5STRING, "org", "/DC=org");
    row("state", "2.5.4.8", V_ASN1_PRINTABLESTRING, "Hesse", "/ST=Hesse");
    row("unique identifier", "2.5.4.45", V_ASN1_UTF8STRING, "1", "/x500UniqueIdentifier=1");
    row("unknown object", "1.2.3.4", V_ASN1_UTF8STRING, "x", "/1.2.3.4=x");
    row("named by later engines: organization identifier", "2.5.4.97", V_ASN1_UTF8STRING, "x",
        "/2.5.4.97=x");
    row("named by later engines: country code", "2.5.4.98", V_ASN1_PRINTABLESTRING, "x",
        "/2.5.4.98=x");
    row("named by later engines: unique identifier", "0.9.2342.19200300.100.1.44",
        V_ASN1_UTF8STRING, "x", "/0.9.2342.19200300.100.1.44=x");
    row("named by the reference engine only", "1.1.1.1.666.1", V_ASN1_UTF8STRING, "x", "/RLE=x");
    row("empty value", "2.5.4.3", V_ASN1_UTF8STRING, "", "/CN=");
    row("slash", "2.5.4.3", V_ASN1_UTF8STRING, "a/b", "/CN=a/b");
    row("plus, comma, equals sign, quote", "2.5.4.3", V_ASN1_UTF8STRING, "a+b,c=d\"e",
        "/CN=a+b,c=d\"e");
    row("backslash", "2.5.4.3", V_ASN1_UTF8STRING, "a\\b", "/CN=a\\b");
    row("blanks at the ends", "2.5.4.3", V_ASN1_UTF8STRING, " a ", "/CN= a ");
    row("NUL", "2.5.4.3", V_ASN1_UTF8STRING, QByteArray("a\0b", 3), "/CN=a\\x00b");
    row("line feed", "2.5.4.3", V_ASN1_UTF8STRING, "a\nb", "/CN=a\\x0Ab");
    row("UTF-8", "2.5.4.3", V_ASN1_UTF8STRING, "\xC3\xBC", "/CN=\\xC3\\xBC");
    row("Latin 1", "2.5.4.3", V_ASN1_T61STRING, "\xFC", "/CN=\\xFC");
    row("two-byte characters", "2.5.4.3", V_ASN1_BMPSTRING, QByteArray("\0h\0i", 4),
        "/CN=\\x00h\\x00i");
    row("four-byte characters", "2.5.4.3", V_ASN1_UNIVERSALSTRING, QByteArray("\0\0\0h", 4),
        "/CN=\\x00\\x00\\x00h");
    row("general string of four-byte characters", "2.5.4.3", V_ASN1_GENERALSTRING,
        QByteArray("\0\0\0h\0\0\0\xFC", 8), "/CN=h\\xFC");
    row("general string of bytes", "2.5.4.3", V_ASN1_GENERALSTRING, "four", "/CN=four");
    row("general string of wide characters", "2.5.4.3", V_ASN1_GENERALSTRING,
        QByteArray("\0\0\x20\xAC", 4), "/CN=\\x00\\x00 \\xAC");
    row("general string of odd length", "2.5.4.3", V_ASN1_GENERALSTRING, QByteArray("\0\0\0h\0", 5),
        "/CN=\\x00\\x00\\x00h\\x00");
}

void NameOnelineTest::oneAttribute()
{
    QFETCH(QByteArray, field);
    QFETCH(int, type);
    QFETCH(QByteArray, value);
    QFETCH(QString, expected);

    const Name name(X509_NAME_new());
    append(name.get(), field.constData(), type, value);
    QCOMPARE(nameOneline(name.get()), expected);
    if (type == V_ASN1_GENERALSTRING)
        return; // Not accepted in names that are parsed.
    const Name again = parsedAgain(name.get());
    QVERIFY(again);
    QCOMPARE(nameOneline(again.get()), expected);
}

void NameOnelineTest::attributesFollowEachOtherInOrder()
{
    const Name name(X509_NAME_new());
    append(name.get(), "CN", V_ASN1_UTF8STRING, "host");
    append(name.get(), "C", V_ASN1_PRINTABLESTRING, "DE");
    append(name.get(), "CN", V_ASN1_UTF8STRING, "other");
    QCOMPARE(nameOneline(name.get()), QStringLiteral("/CN=host/C=DE/CN=other"));
}

void NameOnelineTest::multiValuedPartsAreNotJoined()
{
    const Name name(X509_NAME_new());
    append(name.get(), "C", V_ASN1_PRINTABLESTRING, "DE");
    append(name.get(), "OU", V_ASN1_UTF8STRING, "x");
    append(name.get(), "CN", V_ASN1_UTF8STRING, "host", SAME_PART);
    QCOMPARE(nameOneline(name.get()), QStringLiteral("/C=DE/OU=x/CN=host"));
    QCOMPARE(X509_NAME_entry_count(name.get()), 3);
}

void NameOnelineTest::emptyNameIsEmptyText()
{
    const Name name(X509_NAME_new());
    QVERIFY(nameOneline(name.get()).isEmpty());
}

void NameOnelineTest::nullNameIsNamedAsSuch()
{
    QCOMPARE(nameOneline(nullptr), QStringLiteral("NO X509_NAME"));
}

void NameOnelineTest::overlongNameGivesEmptyText()
{
    constexpr int limit = 1024 * 1024;
    const int overhead = int(qstrlen("/CN="));
    const Name fits(X509_NAME_new());
    append(fits.get(), "CN", V_ASN1_UTF8STRING, QByteArray(limit - overhead, 'x'));
    QCOMPARE(nameOneline(fits.get()).size(), limit);

    const Name tooLong(X509_NAME_new());
    append(tooLong.get(), "CN", V_ASN1_UTF8STRING, QByteArray(limit - overhead + 1, 'x'));
    QVERIFY(nameOneline(tooLong.get()).isEmpty());

    const Name escaped(X509_NAME_new());
    append(escaped.get(), "CN", V_ASN1_UTF8STRING, QByteArray(limit / 4, '\n'));
    QVERIFY(nameOneline(escaped.get()).isEmpty());
}

void NameOnelineTest::longObjectIdentifierIsCut()
{
    QByteArray field = "1.2";
    while (field.size() < 100)
        field += ".12345";
    const Name name(X509_NAME_new());
    append(name.get(), field.constData(), V_ASN1_UTF8STRING, "x");
    QCOMPARE(nameOneline(name.get()), QString::fromLatin1('/' + field.left(79) + "=x"));
}

void NameOnelineTest::everyByteIsWrittenOrEscaped()
{
    for (int byte = 0; byte < 256; ++byte) {
        const Name name(X509_NAME_new());
        append(name.get(), "CN", V_ASN1_T61STRING, QByteArray(1, char(byte)));
        const QByteArray hex = QByteArray(1, char(byte)).toHex().toUpper();
        const QByteArray expected =
            byte >= 0x20 && byte < 0x7F ? QByteArray(1, char(byte)) : "\\x" + hex;
        QCOMPARE(nameOneline(name.get()), QString::fromLatin1("/CN=" + expected));
    }
}

void NameOnelineTest::namesAgreeWithTheReferenceEngine()
{
    if (!isReferenceEngine())
        QSKIP("this engine writes names in another form");

    QRandomGenerator random(1);
    const int types[] = {V_ASN1_UTF8STRING, V_ASN1_GENERALSTRING, V_ASN1_BMPSTRING,
                         V_ASN1_PRINTABLESTRING, V_ASN1_T61STRING};
    for (int nid = 1; nid < 2000; ++nid) {
        const ASN1_OBJECT* object = OBJ_nid2obj(nid);
        char field[128] = "1.2.3.4";
        if (object && OBJ_obj2txt(field, sizeof field, object, 1) <= 0)
            continue; // Named, but without an identifier.
        QByteArray value;
        while (value.size() < nid % 17)
            value += char(random.bounded(nid % 3 ? 256 : 2));
        const Name name(X509_NAME_new());
        append(name.get(), field, types[nid % 5], value);
        append(name.get(), "CN", V_ASN1_UTF8STRING, "x", nid % 2 ? NEW_PART : SAME_PART);
        const vela::OpenSslString expected(X509_NAME_oneline(name.get(), nullptr, 0));
        QCOMPARE(nameOneline(name.get()), QString::fromLatin1(expected.get()));
    }
}

QTEST_GUILESS_MAIN(NameOnelineTest)
#include "tst_nameoneline.moc"

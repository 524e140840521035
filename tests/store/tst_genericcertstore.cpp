// SPDX-License-Identifier: BSD-3-Clause
#include "StoreCertificates.h"

#include <Ferrule/GenericCertStore.h>

#include <QtCore/QBuffer>
#include <QtCore/QFile>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <memory>
#include <QtXml/QDomDocument>

using namespace test;
using vela::CertAccept;
using vela::GenericCertStore;
using vela::SslCertificate;
using vela::SslCertificatePtr;

namespace {

const QByteArray SAVED = "<CertificateStore/>\n";
constexpr int BUNDLE_SIZE = 168;

//! A device that is open but cannot be read.
class BrokenDevice : public QIODevice
{
protected:
    qint64 readData(char*, qint64) override { return -1; }
    qint64 writeData(const char*, qint64) override { return -1; }
};

//! Counts what goes through Qt's message channels while it lives.
class MessageCounter
{
public:
    MessageCounter()
    {
        s_count = 0;
        m_previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString&) { ++s_count; });
    }
    ~MessageCounter() { qInstallMessageHandler(m_previous); }

    int count() const { return s_count; }

private:
    Q_DISABLE_COPY(MessageCounter)

    QtMessageHandler m_previous;
    static int s_count;
};

int MessageCounter::s_count = 0;

void import(GenericCertStore& store, const QByteArray& text, CertAccept accept)
{
    QByteArray copy = text;
    QBuffer buffer(&copy);
    buffer.open(QIODevice::ReadOnly);
    store.importRootCerts(&buffer, accept);
}

void importBundle(GenericCertStore& store, CertAccept accept)
{
    QFile bundle(QStringLiteral(":/Certificates/RootCerts.pem"));
    QVERIFY(bundle.open(QIODevice::ReadOnly));
    store.importRootCerts(&bundle, accept);
}

//! Returns what the record under the key of all certificates without X.509 data says.
int acceptOfTheEmpty(GenericCertStore& store)
{
    return static_cast<int>(store.trustInfo(SslCertificatePtr(new SslCertificate)).accept);
}

int acceptOf(const GenericCertStore& store, const SslCertificatePtr& certificate)
{
    return static_cast<int>(store.trustInfo(certificate).accept);
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("unreadable");
}

QByteArray saved(GenericCertStore& store)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    store.saveRootCerts(&buffer);
    return buffer.data();
}

} // namespace

class GenericCertStoreTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void metaObjectAddsNothing();
    void chainVerdictIsAlwaysUnknown();
    void verdictOnACertificateNeedsItsChain();
    void systemIsLeftAlone();

    void embeddedBundleGivesEveryChain();
    void secondImportOnlyChangesTheRecords();
    void storedChainsHaveOneElementAndStandInOrder();
    void textAroundTheBlocksDoesNotMatter_data();
    void textAroundTheBlocksDoesNotMatter();
    void damagedBlockIsLeftOut_data();
    void damagedBlockIsLeftOut();
    void equalCertificateReplacesAStoredChain();
    void textBeforeTheFirstBlockHasARecord_data();
    void textBeforeTheFirstBlockHasARecord();
    void recordKeepsItsOtherFields();
    void nulEndsTheText();
    void deviceThatCannotBeReadLeavesARecord_data();
    void deviceThatCannotBeReadLeavesARecord();
    void deviceIsReadFromWhereItStands();
    void importIsSilent();
    void importCanBeOverridden();

    void savedFormIsOneEmptyElement();
    void savedFormOfAFileIsTheSame();
    void longerFileKeepsItsTail();
    void secondArgumentKeepsTheFileAsItWas();
    void secondArgumentStillCreatesTheFile();
    void openingChangesNothing_data();
    void openingChangesNothing();
    void openingAFileChangesNothing_data();
    void openingAFileChangesNothing();
    void openingReadsTheFormUnlessToldOtherwise();
    void openingTakesNoMoreForWhatIsNestedOrLarge_data();
    void openingTakesNoMoreForWhatIsNestedOrLarge();
    void unusableFilesAreIgnoredSilently();

private:
    QByteArray m_alpha;
    QByteArray m_beta;
    SslCertificatePtr m_a;
    SslCertificatePtr m_b;
};

void GenericCertStoreTest::initTestCase()
{
    m_alpha = makeNamed(QStringLiteral("Alpha")).certificatePem();
    m_beta = makeNamed(QStringLiteral("Beta")).certificatePem();
    m_a = parse(m_alpha);
    m_b = parse(m_beta);
}

void GenericCertStoreTest::metaObjectAddsNothing()
{
    const QMetaObject& meta = GenericCertStore::staticMetaObject;
    QCOMPARE(meta.className(), "vela::GenericCertStore");
    QCOMPARE(meta.superClass(), &vela::CertificateStore::staticMetaObject);
    QCOMPARE(meta.methodCount(), meta.methodOffset());
    QObject parent;
    const auto* const store = new GenericCertStore(&parent);
    QCOMPARE(store->parent(), &parent);
    QCOMPARE(store->count(), 0);
}

void GenericCertStoreTest::chainVerdictIsAlwaysUnknown()
{
    GenericCertStore store(nullptr);
    QCOMPARE(store.verify(vela::SslCertificateChain()), vela::VerifyUnknown);
    QCOMPARE(store.verify(chainOf({SslCertificatePtr()})), vela::VerifyUnknown);
    QCOMPARE(store.verify(chainOf({m_a, m_b})), vela::VerifyUnknown);
    QCOMPARE(store.count(), 0);
}

void GenericCertStoreTest::verdictOnACertificateNeedsItsChain()
{
    GenericCertStore store(nullptr);
    QCOMPARE(store.verify(m_a), vela::VerifyFailed);
    import(store, m_alpha, vela::AcceptAlways);
    QCOMPARE(store.verify(m_a), vela::VerifyUnknown);
    QCOMPARE(store.verify(m_b), vela::VerifyFailed);
}

void GenericCertStoreTest::systemIsLeftAlone()
{
    GenericCertStore store(nullptr);
    QVERIFY(!store.importSystemRootCert(m_a));
    QVERIFY(!store.importSystemRootCert(SslCertificatePtr()));
    QCOMPARE(store.count(), 0);
    QCOMPARE(store.indexOf(m_a), -1);
}

void GenericCertStoreTest::embeddedBundleGivesEveryChain()
{
    GenericCertStore store(nullptr);
    importBundle(store, vela::AcceptSession);
    QCOMPARE(store.count(), BUNDLE_SIZE);
    for (int i = 0; i < store.count(); ++i)
        QCOMPARE(acceptOf(store, store[i].endCert()), static_cast<int>(vela::AcceptSession));
    QCOMPARE(acceptOfTheEmpty(store), static_cast<int>(vela::AcceptSession));
}

void GenericCertStoreTest::secondImportOnlyChangesTheRecords()
{
    GenericCertStore store(nullptr);
    importBundle(store, vela::AcceptSession);
    const SslCertificatePtr last = store[BUNDLE_SIZE - 1].endCert();
    importBundle(store, vela::AcceptNever);
    QCOMPARE(store.count(), BUNDLE_SIZE);
    QCOMPARE(store.indexOf(last), BUNDLE_SIZE - 1);
    for (int i = 0; i < store.count(); ++i)
        QCOMPARE(acceptOf(store, store[i].endCert()), static_cast<int>(vela::AcceptNever));
    QCOMPARE(acceptOfTheEmpty(store), static_cast<int>(vela::AcceptNever));
}

void GenericCertStoreTest::storedChainsHaveOneElementAndStandInOrder()
{
    GenericCertStore store(nullptr);
    import(store, m_beta + m_alpha, vela::AcceptOnce);
    QCOMPARE(store.count(), 2);
    QCOMPARE(store[0].size(), 1);
    QCOMPARE(store.indexOf(m_b), 0);
    QCOMPARE(store.indexOf(m_a), 1);
}

void GenericCertStoreTest::textAroundTheBlocksDoesNotMatter_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("between");
    QTest::addColumn<QByteArray>("after");
    const auto row = [](const char* name, const QByteArray& before, const QByteArray& between,
                        const QByteArray& after) {
        QTest::newRow(name) << before << between << after;
    };
    row("none", "", "", "");
    row("line ends", "\r\n", "\r\n\r\n", "\n\n");
    row("prose", "Roots\n=====\n", "# and another\nAlpha: beta\n", "That is all.");
    row("UTF-8", "Wurzeln f\xC3\xBCr alle\n", "\xD0\x9A\xD0\xBE\xD1\x80\xD0\xB5\xD0\xBD\n",
        "\xE2\x80\x94");
    row("octets that are not UTF-8", "\xFF\xFE\n", "\x80\xC3\n", "\xC3");
    row("byte order mark", "\xEF\xBB\xBF", "", "");
    row("another PEM block", "-----BEGIN NOTHING-----\nAAAA\n-----END NOTHING-----\n",
        "-----BEGIN NOTHING-----\nAAAA\n-----END NOTHING-----\n", "");
    row("marker in other case", "-----begin certificate-----\n", "-----Begin Certificate-----\n",
        "");
}

void GenericCertStoreTest::textAroundTheBlocksDoesNotMatter()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, between);
    QFETCH(QByteArray, after);
    GenericCertStore store(nullptr);
    import(store, before + m_alpha + between + m_beta + after, vela::AcceptOnce);
    QCOMPARE(store.count(), 2);
    QCOMPARE(store.indexOf(m_a), 0);
    QCOMPARE(store.indexOf(m_b), 1);
    QCOMPARE(acceptOf(store, m_a), static_cast<int>(vela::AcceptOnce));
    QCOMPARE(acceptOf(store, m_b), static_cast<int>(vela::AcceptOnce));
}

void GenericCertStoreTest::damagedBlockIsLeftOut_data()
{
    QTest::addColumn<QByteArray>("block");
    QByteArray base64 = m_alpha;
    base64.replace(base64.indexOf('\n') + 5, 4, "!!!!");
    QTest::newRow("base64") << base64;
    QTest::newRow("no end line") << m_alpha.left(m_alpha.indexOf("-----END"));
    QTest::newRow("cut") << m_alpha.left(m_alpha.size() / 2);
    QTest::newRow("marker alone") << QByteArray("-----BEGIN CERTIFICATE-----");
    QTest::newRow("no content") << QByteArray(
        "-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n");
    QTest::newRow("not a certificate")
        << QByteArray("-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n");
}

void GenericCertStoreTest::damagedBlockIsLeftOut()
{
    QFETCH(QByteArray, block);
    GenericCertStore store(nullptr);
    const QByteArray gamma = makeNamed(QStringLiteral("Gamma")).certificatePem();
    import(store, gamma + block + m_beta, vela::AcceptOnce);
    QCOMPARE(store.count(), 2);
    QCOMPARE(store.indexOf(parse(gamma)), 0);
    QCOMPARE(store.indexOf(m_b), 1);
    QCOMPARE(acceptOf(store, m_b), static_cast<int>(vela::AcceptOnce));
    QCOMPARE(acceptOf(store, m_a), static_cast<int>(vela::AcceptUndecided));
    QCOMPARE(acceptOfTheEmpty(store), static_cast<int>(vela::AcceptOnce));
}

void GenericCertStoreTest::equalCertificateReplacesAStoredChain()
{
    GenericCertStore store(nullptr);
    store.addCertificateChain(chainOf({m_a, m_b}));
    store.addOneCertificate(m_b);
    import(store, m_alpha + m_alpha, vela::AcceptOnce);
    QCOMPARE(store.count(), 2);
    QCOMPARE(store[0].size(), 1);
    QCOMPARE(store.indexOf(m_a), 0);
    QVERIFY(store[0].endCert() != m_a);
}

void GenericCertStoreTest::textBeforeTheFirstBlockHasARecord_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("count");
    QTest::newRow("empty") << QByteArray() << 0;
    QTest::newRow("no marker") << QByteArray("neither a root nor a bundle\n") << 0;
    QTest::newRow("line end") << "\r\n" + m_alpha << 1;
    QTest::newRow("nothing before the marker") << m_alpha << 1;
}

void GenericCertStoreTest::textBeforeTheFirstBlockHasARecord()
{
    QFETCH(QByteArray, text);
    GenericCertStore store(nullptr);
    import(store, text, vela::AcceptOnce);
    QTEST(store.count(), "count");
    QCOMPARE(acceptOfTheEmpty(store), static_cast<int>(vela::AcceptOnce));
    const SslCertificatePtr empty(new SslCertificate);
    QCOMPARE(acceptOf(store, empty), static_cast<int>(vela::AcceptUndecided));
}

void GenericCertStoreTest::recordKeepsItsOtherFields()
{
    GenericCertStore store(nullptr);
    store.trustInfo(m_a).state = 17;
    store.trustInfo(m_a).mark = 18;
    import(store, m_alpha, vela::AcceptOnce);
    const vela::CertTrust record = qAsConst(store).trustInfo(m_a);
    QCOMPARE(record.state, 17U);
    QCOMPARE(record.mark, 18);
    QCOMPARE(static_cast<int>(record.accept), static_cast<int>(vela::AcceptOnce));
}

void GenericCertStoreTest::nulEndsTheText()
{
    GenericCertStore store(nullptr);
    import(store, m_alpha + '\0' + m_beta, vela::AcceptOnce);
    QCOMPARE(store.count(), 1);
    QCOMPARE(store.indexOf(m_a), 0);
}

void GenericCertStoreTest::deviceThatCannotBeReadLeavesARecord_data()
{
    QTest::addColumn<bool>("open");
    QTest::newRow("fails to read") << true;
    QTest::newRow("not open") << false;
}

void GenericCertStoreTest::deviceThatCannotBeReadLeavesARecord()
{
    QFETCH(bool, open);
    BrokenDevice device;
    if (open)
        QVERIFY(device.open(QIODevice::ReadOnly));
    GenericCertStore store(nullptr);
    store.importRootCerts(&device, vela::AcceptOnce);
    QCOMPARE(store.count(), 0);
    QCOMPARE(acceptOfTheEmpty(store), static_cast<int>(vela::AcceptOnce));
}

void GenericCertStoreTest::deviceIsReadFromWhereItStands()
{
    QByteArray text = m_alpha + m_beta;
    QBuffer buffer(&text);
    buffer.open(QIODevice::ReadOnly);
    buffer.seek(m_alpha.size());
    GenericCertStore store(nullptr);
    store.importRootCerts(&buffer, vela::AcceptOnce);
    QCOMPARE(store.count(), 1);
    QCOMPARE(store.indexOf(m_b), 0);
    QVERIFY(buffer.atEnd());
}

void GenericCertStoreTest::importIsSilent()
{
    GenericCertStore store(nullptr);
    const QSignalSpy added(&store, &GenericCertStore::added);
    const QSignalSpy updated(&store, &GenericCertStore::updated);
    const MessageCounter messages;
    import(store, "text" + m_alpha.left(200) + m_beta + m_beta, vela::AcceptOnce);
    import(store, QByteArray(), vela::AcceptOnce);
    BrokenDevice device;
    device.open(QIODevice::ReadOnly);
    store.importRootCerts(&device, vela::AcceptOnce);
    QCOMPARE(messages.count(), 0);
    QCOMPARE(added.count() + updated.count(), 0);
}

void GenericCertStoreTest::importCanBeOverridden()
{
    class Store : public GenericCertStore
    {
    public:
        Store()
            : GenericCertStore(nullptr)
        {
        }
        void importRootCerts(QIODevice*, CertAccept accept) override { imported = accept; }
        CertAccept imported = vela::AcceptUndecided;
    };
    Store store;
    static_cast<GenericCertStore&>(store).importRootCerts(nullptr, vela::AcceptOnce);
    QCOMPARE(store.imported, vela::AcceptOnce);
}

void GenericCertStoreTest::savedFormIsOneEmptyElement()
{
    GenericCertStore store(nullptr);
    QCOMPARE(saved(store), SAVED);
    import(store, m_alpha + m_beta, vela::AcceptOnce);
    QCOMPARE(saved(store), SAVED);
}

void GenericCertStoreTest::savedFormOfAFileIsTheSame()
{
    const PemDirectory directory;
    const QString path = directory.path() + QStringLiteral("/store.xml");
    GenericCertStore store(nullptr);
    import(store, m_alpha, vela::AcceptOnce);
    store.saveRootCerts(path, QString());
    QCOMPARE(contentOf(path), SAVED);
    store.saveRootCerts(path, QStringLiteral(""));
    QCOMPARE(contentOf(path), SAVED);
}

void GenericCertStoreTest::longerFileKeepsItsTail()
{
    const PemDirectory directory;
    const QByteArray old(SAVED.size() + 3, 'x');
    const QString path = directory.write(QStringLiteral("store.xml"), old);
    GenericCertStore store(nullptr);
    store.saveRootCerts(path, QString());
    QCOMPARE(contentOf(path), SAVED + "xxx");
}

void GenericCertStoreTest::secondArgumentKeepsTheFileAsItWas()
{
    const PemDirectory directory;
    const QString path = directory.write(QStringLiteral("store.xml"), "as it was");
    GenericCertStore store(nullptr);
    store.saveRootCerts(path, QStringLiteral("x"));
    QCOMPARE(contentOf(path), QByteArray("as it was"));
}

void GenericCertStoreTest::secondArgumentStillCreatesTheFile()
{
    const PemDirectory directory;
    const QString path = directory.path() + QStringLiteral("/store.xml");
    GenericCertStore store(nullptr);
    store.saveRootCerts(path, QStringLiteral("x"));
    QVERIFY(QFile::exists(path));
    QCOMPARE(contentOf(path), QByteArray());
}

void GenericCertStoreTest::openingChangesNothing_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("saved form") << SAVED;
    QTest::newRow("with children")
        << QByteArray("<CertificateStore><Chain>" + m_alpha + "</Chain></CertificateStore>");
    QTest::newRow("other root") << QByteArray("<Other/>");
    QTest::newRow("unfinished") << QByteArray("<CertificateStore>");
    QTest::newRow("not XML") << m_alpha;
    QTest::newRow("undefined prefix") << QByteArray("<a:CertificateStore/>");
    QTest::newRow("with a tail") << SAVED + "xxx";
    QTest::newRow("binary") << QByteArray("\0\xFF\x01", 3);
    QTest::newRow("empty") << QByteArray();
}

void GenericCertStoreTest::openingChangesNothing()
{
    QFETCH(QByteArray, content);
    GenericCertStore store(nullptr);
    import(store, m_beta, vela::AcceptOnce);
    const MessageCounter messages;
    QBuffer buffer(&content);
    buffer.open(QIODevice::ReadOnly);
    store.openRootCerts(&buffer);
    QDomDocument document;
    document.setContent(content);
    store.openRootCerts(document.documentElement());
    QCOMPARE(messages.count(), 0);
    QCOMPARE(store.count(), 1);
    QCOMPARE(store.indexOf(m_b), 0);
    QCOMPARE(acceptOf(store, m_b), static_cast<int>(vela::AcceptOnce));
}

void GenericCertStoreTest::openingAFileChangesNothing_data()
{
    openingChangesNothing_data();
}

void GenericCertStoreTest::openingAFileChangesNothing()
{
    QFETCH(QByteArray, content);
    const PemDirectory directory;
    const QString path = directory.write(QStringLiteral("store.xml"), content);
    GenericCertStore store(nullptr);
    import(store, m_beta, vela::AcceptOnce);
    const MessageCounter messages;
    store.openRootCerts(path, QString());
    store.openRootCerts(path, QStringLiteral("x"));
    QCOMPARE(messages.count(), 0);
    QCOMPARE(store.count(), 1);
    QCOMPARE(acceptOf(store, m_b), static_cast<int>(vela::AcceptOnce));
    QCOMPARE(contentOf(path), content);
}

void GenericCertStoreTest::openingReadsTheFormUnlessToldOtherwise()
{
    QByteArray content = SAVED;
    QBuffer buffer(&content);
    buffer.open(QIODevice::ReadOnly);
    GenericCertStore store(nullptr);
    store.openRootCerts(&buffer);
    QVERIFY(buffer.atEnd());
}

void GenericCertStoreTest::openingTakesNoMoreForWhatIsNestedOrLarge_data()
{
    QTest::addColumn<QByteArray>("unit");
    QTest::addColumn<int>("count");
    QTest::newRow("2,500 levels") << QByteArray("<a>") << 2500;
    QTest::newRow("50,000 levels") << QByteArray("<a>") << 50000;
    QTest::newRow("5,000,000 levels") << QByteArray("<a>") << 5000000;
    QTest::newRow("64 MiB of text") << QByteArray("x").repeated(1024) << 64 * 1024;
}

//! On a stack of the size that threads have on some systems.
void GenericCertStoreTest::openingTakesNoMoreForWhatIsNestedOrLarge()
{
    constexpr uint STACK = 256 * 1024;
    QFETCH(QByteArray, unit);
    QFETCH(int, count);
    QByteArray content = unit.repeated(count);
    if (unit == "<a>")
        content += QByteArray("</a>").repeated(count);
    QBuffer buffer(&content);
    buffer.open(QIODevice::ReadOnly);
    std::unique_ptr<QThread> reader(QThread::create([&buffer] {
        GenericCertStore store(nullptr);
        store.openRootCerts(&buffer);
    }));
    reader->setStackSize(STACK);
    reader->start();
    QVERIFY(reader->wait());
    QVERIFY(buffer.atEnd());
}

void GenericCertStoreTest::unusableFilesAreIgnoredSilently()
{
    const PemDirectory directory;
    const QString missing = directory.path() + QStringLiteral("/no/such/store.xml");
    GenericCertStore store(nullptr);
    const MessageCounter messages;
    for (const QString& second : {QString(), QStringLiteral("x")}) {
        store.openRootCerts(missing, second);
        store.saveRootCerts(missing, second);
        store.openRootCerts(directory.path(), second);
        store.saveRootCerts(directory.path(), second);
    }
    BrokenDevice device;
    device.open(QIODevice::ReadWrite);
    store.openRootCerts(&device);
    store.saveRootCerts(&device);
    store.openRootCerts(QDomElement());
    QCOMPARE(messages.count(), 0);
    QVERIFY(!QFile::exists(missing));
}

QTEST_GUILESS_MAIN(GenericCertStoreTest)
#include "tst_genericcertstore.moc"

// SPDX-License-Identifier: BSD-3-Clause

/*
    The order in which the library's process-wide state comes and goes. What makes it is wrapped by
    the linker and writes down that it was called. A second run of this program, which does nothing
    but start and end, prints the record when all else is over.
*/

#include "resources/ResourceTables.h"
#include "socket/SessionPool.h"
#include "tests/common/ImportedWrap.h"

#include <Ferrule/CertificateStore.h>

#include <QtCore/QMetaType>
#include <QtTest/QtTest>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Written before any constructor has run: plain memory, no constructors of its own.
char record[4096];
const QStringData* keys[16];
const char* keyNames[16];
int keyCount = 0;

void note(const char* what, const char* which = "")
{
    const std::size_t length = std::strlen(record);
    std::snprintf(record + length, sizeof record - length, "%s%s\n", what, which);
}

void printRecord()
{
    std::fputs(record, stdout);
    std::fflush(stdout);
}

//! Registered before all else, and so called after all else.
__attribute__((constructor(101))) void printRecordAtTheEnd()
{
    std::atexit([] {
        if (std::getenv("FERRULE_TEST_PRINT_RECORD"))
            printRecord();
    });
}

const char* nameOfTree(const unsigned char* tree)
{
    return tree == vela::CERTIFICATES_RESOURCES.tree   ? "Certificates"
           : tree == vela::TRANSLATIONS_RESOURCES.tree ? "Translations"
                                                       : "unknown";
}

bool isAttributeKey(const char* text)
{
    for (const char* key : {"C", "O", "OU", "L", "ST", "CN", "EMail"}) {
        if (std::strcmp(text, key) == 0)
            return true;
    }
    return false;
}

} // namespace

// The linker's names of the functions that are wrapped; each is still called.
#define REGISTER_RESOURCES _Z21qRegisterResourceDataiPKhS0_S0_
#define UNREGISTER_RESOURCES _Z23qUnregisterResourceDataiPKhS0_S0_
#define MAKE_POOL _ZN4vela11SessionPoolC1Ev
#define DESTROY_POOL _ZN4vela11SessionPoolD1Ev
#define MAKE_CONTEXT _ZN4vela10SslContext6createEv
#define DETACH_CONTEXT _ZN4vela10SslContext6detachEv
#define REMOVE_LOCKING _ZN4vela20removeOpenSslLockingEv
#define MAKE_STRING _ZN7QString17fromLatin1_helperEPKci
#ifdef Q_OS_WIN // Where std::size_t is another type.
#    define FREE_STRING _ZN10QArrayData10deallocateEPS_yy
#else
#    define FREE_STRING _ZN10QArrayData10deallocateEPS_mm
#endif
#define REGISTER_TYPE                                                                              \
    _ZN9QMetaType22registerNormalizedTypeERK10QByteArrayPFvPvEPFS3_S3_PKvEi6QFlagsINS_8TypeFlagEEPK11QMetaObject
#define UNREGISTER_TYPE _ZN9QMetaType14unregisterTypeEi
#define MAKE_CHAIN _ZN4vela19SslCertificateChainC1Ev
#define DESTROY_CHAIN _ZN4vela19SslCertificateChainD1Ev

#define JOIN(a, b) a##b
#define REAL(name) JOIN(__real_, name)
#define WRAP(name) JOIN(__wrap_, name)

extern "C" {

bool REAL(REGISTER_RESOURCES)(int, const unsigned char*, const unsigned char*,
                              const unsigned char*);
bool REAL(UNREGISTER_RESOURCES)(int, const unsigned char*, const unsigned char*,
                                const unsigned char*);
void REAL(MAKE_POOL)(void* pool);
void REAL(DESTROY_POOL)(void* pool);
bool REAL(MAKE_CONTEXT)();
void REAL(DETACH_CONTEXT)();
void REAL(REMOVE_LOCKING)();
QStringData* REAL(MAKE_STRING)(const char*, int);
void REAL(FREE_STRING)(QArrayData*, std::size_t, std::size_t);
int REAL(REGISTER_TYPE)(const QByteArray&, QMetaType::Destructor, QMetaType::Constructor, int,
                        QMetaType::TypeFlags, const QMetaObject*);
bool REAL(UNREGISTER_TYPE)(int);
void REAL(MAKE_CHAIN)(void* chain);
void REAL(DESTROY_CHAIN)(void* chain);

bool WRAP(REGISTER_RESOURCES)(int version, const unsigned char* tree, const unsigned char* names,
                              const unsigned char* data)
{
    note("+ resources ", nameOfTree(tree));
    note("  in format ", version == 1 ? "1" : "unknown");
    return REAL(REGISTER_RESOURCES)(version, tree, names, data);
}

bool WRAP(UNREGISTER_RESOURCES)(int version, const unsigned char* tree, const unsigned char* names,
                                const unsigned char* data)
{
    const bool found = REAL(UNREGISTER_RESOURCES)(version, tree, names, data);
    note("- resources ", found ? nameOfTree(tree) : "that nobody registered");
    return found;
}

void WRAP(MAKE_POOL)(void* pool)
{
    if (pool == &vela::gSessionPool)
        note("+ session pool");
    REAL(MAKE_POOL)(pool);
}

void WRAP(DESTROY_POOL)(void* pool)
{
    if (pool == &vela::gSessionPool)
        note("- session pool");
    REAL(DESTROY_POOL)(pool);
}

bool WRAP(MAKE_CONTEXT)()
{
    note("+ context");
    return REAL(MAKE_CONTEXT)();
}

void WRAP(DETACH_CONTEXT)()
{
    note("- context");
    REAL(DETACH_CONTEXT)();
}

void WRAP(REMOVE_LOCKING)()
{
    note("- locking");
    REAL(REMOVE_LOCKING)();
}

QStringData* WRAP(MAKE_STRING)(const char* text, int size)
{
    QStringData* const data = REAL(MAKE_STRING)(text, size);
    if (isAttributeKey(text) && keyCount < 7) {
        note("+ key ", text);
        keys[keyCount] = data;
        keyNames[keyCount++] = text;
    }
    return data;
}

void WRAP(FREE_STRING)(QArrayData* data, std::size_t objectSize, std::size_t alignment)
{
    for (int i = 0; i < keyCount; ++i) {
        if (data == keys[i])
            note("- key ", keyNames[i]);
    }
    REAL(FREE_STRING)(data, objectSize, alignment);
}

int WRAP(REGISTER_TYPE)(const QByteArray& name, QMetaType::Destructor destructor,
                        QMetaType::Constructor constructor, int size, QMetaType::TypeFlags flags,
                        const QMetaObject* metaObject)
{
    note("+ type ", name.constData());
    return REAL(REGISTER_TYPE)(name, destructor, constructor, size, flags, metaObject);
}

bool WRAP(UNREGISTER_TYPE)(int type)
{
    note("- type ", QMetaType::typeName(type));
    return REAL(UNREGISTER_TYPE)(type);
}

void WRAP(MAKE_CHAIN)(void* chain)
{
    if (chain == &vela::CertificateStore::EMPTY_CHAIN)
        note("+ empty chain");
    REAL(MAKE_CHAIN)(chain);
}

void WRAP(DESTROY_CHAIN)(void* chain)
{
    if (chain == &vela::CertificateStore::EMPTY_CHAIN)
        note("- empty chain");
    REAL(DESTROY_CHAIN)(chain);
}

} // extern "C"

#define IMPORTED(name) WRAP_IMPORTED(name)
IMPORTED(MAKE_STRING)
IMPORTED(FREE_STRING)
IMPORTED(REGISTER_TYPE)
IMPORTED(UNREGISTER_TYPE)

class StartupOrderTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void stateIsMadeInOrderBeforeAnythingRuns();
    void stateGoesInTheReverseOrder();
    void everyTypeIsWithdrawn();

private:
    QStringList m_atLoad;
    QStringList m_atUnload;
};

void StartupOrderTest::initTestCase()
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("FERRULE_TEST_PRINT_RECORD"), QStringLiteral("1"));
    process.setProcessEnvironment(environment);
    process.start(QCoreApplication::applicationFilePath(), QStringList());
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    const QStringList lines = QString::fromLatin1(process.readAllStandardOutput())
                                  .remove(QLatin1Char('\r'))
                                  .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    const int main = lines.indexOf(QStringLiteral("main"));
    QVERIFY2(main >= 0, qPrintable(lines.join(QLatin1Char('\n'))));
    m_atLoad = lines.mid(0, main);
    m_atUnload = lines.mid(main + 1);
}

void StartupOrderTest::stateIsMadeInOrderBeforeAnythingRuns()
{
    const QStringList expected = {
        QStringLiteral("+ resources Certificates"),
        QStringLiteral("  in format 1"),
        QStringLiteral("+ resources Translations"),
        QStringLiteral("  in format 1"),
        QStringLiteral("+ session pool"),
        QStringLiteral("+ context"),
        QStringLiteral("+ key C"),
        QStringLiteral("+ key O"),
        QStringLiteral("+ key OU"),
        QStringLiteral("+ key L"),
        QStringLiteral("+ key ST"),
        QStringLiteral("+ key CN"),
        QStringLiteral("+ key EMail"),
        QStringLiteral("+ type SslCertificatePtr"),
        QStringLiteral("+ type vela::SslCertificateChain"),
        QStringLiteral("+ type vela::CertVerify"),
        QStringLiteral("+ type vela::CertAccept"),
        QStringLiteral("+ type vela::CertHostName"),
        QStringLiteral("+ empty chain"),
    };
    QStringList seen = m_atLoad;
    // The type of the stores' own has no fixed place.
    QCOMPARE(seen.removeAll(QStringLiteral("+ type vela::CertTrust")), 1);
    QCOMPARE(seen, expected);
}

void StartupOrderTest::stateGoesInTheReverseOrder()
{
    const QStringList expected = {
        QStringLiteral("- empty chain"),
        QStringLiteral("- type"), // All of them.
        QStringLiteral("- key EMail"),
        QStringLiteral("- key CN"),
        QStringLiteral("- key ST"),
        QStringLiteral("- key L"),
        QStringLiteral("- key OU"),
        QStringLiteral("- key O"),
        QStringLiteral("- key C"),
        QStringLiteral("- context"),
        QStringLiteral("- locking"),
        QStringLiteral("- session pool"),
        QStringLiteral("- resources Translations"),
        QStringLiteral("- resources Certificates"),
    };
    QStringList seen;
    for (const QString& line : qAsConst(m_atUnload)) {
        const QString entry = line.startsWith(expected.at(1)) ? expected.at(1) : line;
        if (entry != expected.at(1) || seen.isEmpty() || seen.last() != entry)
            seen.append(entry);
    }
    QCOMPARE(seen, expected);
}

void StartupOrderTest::everyTypeIsWithdrawn()
{
    QStringList made = m_atLoad.filter(QStringLiteral("+ type "));
    QStringList withdrawn = m_atUnload.filter(QStringLiteral("- type "));
    QCOMPARE(made.size(), 6);
    withdrawn.replaceInStrings(QStringLiteral("- "), QStringLiteral("+ "));
    made.sort();
    withdrawn.sort();
    QCOMPARE(withdrawn, made);
}

int main(int argc, char** argv)
{
    if (std::getenv("FERRULE_TEST_PRINT_RECORD")) {
        note("main");
        return 0;
    }
    const QCoreApplication application(argc, argv);
    StartupOrderTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_startuporder.moc"

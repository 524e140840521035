// SPDX-License-Identifier: BSD-3-Clause
#include "support/OpenSslHandles.h"
#include "tests/common/PemFile.h"
#include "tests/common/TlsServer.h"

#include <Ferrule/GenericCertStore.h>
#include <Ferrule/SslCertificateChain.h>
#include <Ferrule/WinCertStore.h>

#include <QtTest/QtTest>

#include <openssl/evp.h>
#include <openssl/pem.h>

#include <functional>
#include <iostream>
#include <string>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

using vela::SslSocket;

/*
    Files that are encrypted, read by a program that has a terminal or only a standard input. A
    reading that asks for a pass phrase shows in what it prints or in the line that it takes. The
    program is this one, run again.
*/
namespace {

constexpr int PATIENCE_MSECS = 10000;
const char* const PASS_PHRASE = "secret";
const QByteArray TYPED = "typed by a person";
constexpr char END_OF_INPUT = 4;

// --- What the program does

QByteArray errorOf(SslSocket& socket, const char* step)
{
    const QSignalSpy errors(&socket, &QAbstractSocket::errorOccurred);
    QMetaObject::invokeMethod(&socket, step);
    return errors.isEmpty() ? QByteArray("no error") : socket.errorString().toLatin1();
}

QByteArray identityError(const QString& certificate, const QString& key)
{
    SslSocket socket(SslSocket::Server);
    socket.setPathToCertificate(certificate);
    socket.setPathToPrivateKey(key);
    return errorOf(socket, "sslAccept");
}

QByteArray verdictOn(const QString& server, const QString& authorities)
{
    test::TlsServer listener;
    listener.configure = [server](SslSocket* socket) {
        socket->setPathToCertificate(server + QStringLiteral(".pem"));
        socket->setPathToPrivateKey(server + QStringLiteral(".key"));
    };
    SslSocket client(SslSocket::Client);
    client.setPathToCACertDir(authorities);
    QSignalSpy verdict(&client, &SslSocket::connectionVerificationDone);
    client.connectToHost(QStringLiteral("localhost"), listener.serverPort());
    return verdict.wait() ? verdict.first().at(2).toByteArray() : QByteArray("no verdict");
}

QByteArray certificatesIn(const QByteArray& pem)
{
    const vela::SslCertificate certificate(pem.constData(), pem.size());
    X509* const handle = vela::SslCertificate::readPem(pem.constData(), pem.size());
    const int length = vela::SslCertificateChain::readPem(pem.constData(), pem.size()).size();
    X509_free(handle);
    return QByteArray::number(!certificate.isEmpty()) + QByteArray::number(handle != nullptr)
           + QByteArray::number(length);
}

QByteArray rootsIn(const QString& file)
{
    QFile bundle(file);
    if (!bundle.open(QIODevice::ReadOnly))
        return "not opened";
    vela::GenericCertStore store(nullptr);
    store.importRootCerts(&bundle, vela::AcceptAlways);
    return QByteArray::number(store.count());
}

QByteArray systemVerdictOn(const QString& file)
{
    const QByteArray pem = test::contentOf(file);
    vela::WinCertStore store(nullptr);
    const vela::SslCertificatePtr certificate(
        new vela::SslCertificate(pem.constData(), pem.size()));
    vela::SslCertificateChain chain;
    chain << certificate;
    return QByteArray::number(store.verify(chain));
}

//! A reading that does ask.
QByteArray carelessReading(const QString& file)
{
    const vela::BioHandle bio(BIO_new_file(QFile::encodeName(file).constData(), "r"));
    const vela::X509Handle x509(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    return x509 ? "read" : "failed";
}

QByteArray read(const QByteArray& what, const QString& directory)
{
    const auto file = [directory](const char* name) -> QString {
        return directory + QLatin1Char('/') + QLatin1String(name);
    };
    if (what == "PKCS #8 key")
        return identityError(file("server.pem"), file("pkcs8.key"));
    if (what == "traditional key")
        return identityError(file("server.pem"), file("traditional.key"));
    if (what == "certificate of a server")
        return identityError(file("encrypted.pem"), file("server.key"));
    if (what == "authorities in a file") {
        SslSocket socket(SslSocket::Client);
        socket.setPathToCACertFile(file("encrypted.pem"));
        return errorOf(socket, "sslConnect");
    }
    if (what == "authorities in a directory")
        return verdictOn(file("server"), file("hashed"));
    if (what == "default authorities in a file") {
        qputenv("SSL_CERT_FILE", QFile::encodeName(file("encrypted.pem")));
        return identityError(file("server.pem"), file("server.key"));
    }
    if (what == "default authorities in a directory") {
        qputenv("SSL_CERT_DIR", QFile::encodeName(file("hashed")));
        return verdictOn(file("server"), QString());
    }
    if (what == "certificates in memory")
        return certificatesIn(test::contentOf(file("encrypted.pem")));
    if (what == "certificate in a file")
        return vela::SslCertificate::readPem(file("encrypted.pem")) ? "read" : "failed";
    if (what == "roots of a generic store")
        return rootsIn(file("encrypted.pem"));
    if (what == "roots of the system") {
        qputenv("SSL_CERT_FILE", QFile::encodeName(file("encrypted.pem")));
        return systemVerdictOn(file("server.pem"));
    }
    return carelessReading(file("encrypted.pem"));
}

//! Writes down the result and what is left of the standard input.
int runAsReader(int& argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    const QString directory = QFile::decodeName(argv[2]);
    const QByteArray result = read(argv[1], directory);
    std::string line;
    std::getline(std::cin, line);
    QFile report(directory + QStringLiteral("/report"));
    return report.open(QIODevice::WriteOnly)
                   && report.write(result + '\n' + QByteArray::fromStdString(line)) > 0
               ? 0
               : 1;
}

// --- The program and its terminal

//! The ends of the program's standard input and output that its user has.
struct Reader
{
    pid_t process = -1;
    int input = -1;
    int output = -1;
};

[[noreturn]] void become(const QByteArray& what, const QByteArray& directory)
{
    const QByteArray program = QFile::encodeName(QCoreApplication::applicationFilePath());
    execl(program.constData(), program.constData(), what.constData(), directory.constData(),
          nullptr);
    _exit(127);
}

Reader startOnTerminal(const QByteArray& what, const QByteArray& directory)
{
    Reader reader;
    termios settings = {};
    cfmakeraw(&settings); // What is typed is not to come back as output.
    settings.c_lflag |= ICANON;
    settings.c_cflag |= CS8 | CREAD;
    settings.c_cc[VEOF] = END_OF_INPUT;
    reader.process = forkpty(&reader.output, nullptr, &settings, nullptr);
    if (reader.process == 0)
        become(what, directory);
    reader.input = dup(reader.output);
    return reader;
}

Reader startWithoutTerminal(const QByteArray& what, const QByteArray& directory)
{
    int input[2];
    int output[2];
    if (pipe(input) != 0 || pipe(output) != 0)
        qFatal("no pipe");
    Reader reader;
    reader.process = fork();
    if (reader.process == 0) {
        setsid();
        dup2(input[0], STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        dup2(output[1], STDERR_FILENO);
        close(input[1]);
        become(what, directory);
    }
    close(input[0]);
    close(output[1]);
    reader.input = input[1];
    reader.output = output[0];
    return reader;
}

struct Outcome
{
    bool ended = false;
    QByteArray printed;
    QByteArray result;
    QByteArray inputLeft;
};

//! Takes what the program prints until it has nothing more to print, or until it has to be ended.
QByteArray outputOf(const Reader& reader)
{
    QByteArray printed;
    QElapsedTimer timer;
    timer.start();
    char piece[256];
    pollfd readable = {reader.output, POLLIN, 0};
    while (poll(&readable, 1, qMax(0, PATIENCE_MSECS - int(timer.elapsed()))) > 0) {
        const ssize_t size = ::read(reader.output, piece, sizeof piece);
        if (size <= 0)
            return printed;
        printed.append(piece, int(size));
    }
    kill(reader.process, SIGKILL);
    return printed;
}

Outcome run(const QByteArray& what, const QString& directory, bool hasTerminal)
{
    const QString report = directory + QStringLiteral("/report");
    QFile::remove(report);
    const QByteArray path = QFile::encodeName(directory);
    const Reader reader = (hasTerminal ? startOnTerminal : startWithoutTerminal)(what, path);
    QByteArray line = TYPED + '\n';
    if (hasTerminal)
        line.append(END_OF_INPUT);
    Outcome outcome;
    if (write(reader.input, line.constData(), size_t(line.size())) != line.size())
        qFatal("nothing can be typed");
    close(reader.input);
    outcome.printed = outputOf(reader);
    int status = 0;
    waitpid(reader.process, &status, 0);
    close(reader.output);
    outcome.ended = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (QFile::exists(report)) {
        const QByteArrayList lines = test::contentOf(report).split('\n');
        outcome.result = lines.value(0);
        outcome.inputLeft = lines.value(1);
    }
    return outcome;
}

// --- What it reads

QByteArray contentOf(BIO* bio)
{
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    return QByteArray(data, int(length));
}

//! A PEM block whose content is encrypted in the way of old.
QByteArray encryptedBlock(const char* name, const std::function<int(unsigned char**)>& encode)
{
    unsigned char* der = nullptr;
    const int length = encode(&der);
    const vela::BioHandle bio(BIO_new(BIO_s_mem()));
    struct Encoded
    {
        const unsigned char* data;
        int length;
    } encoded = {der, length};
    const auto copy = [](const void* object, unsigned char** out) {
        const auto* source = static_cast<const Encoded*>(object);
        if (out) {
            memcpy(*out, source->data, size_t(source->length));
            *out += source->length;
        }
        return source->length;
    };
    using Copy = int (*)(const void*, unsigned char**);
    PEM_ASN1_write_bio(reinterpret_cast<i2d_of_void*>(static_cast<Copy>(copy)), name, bio.get(),
                       &encoded, EVP_aes_128_cbc(),
                       reinterpret_cast<unsigned char*>(const_cast<char*>(PASS_PHRASE)),
                       int(strlen(PASS_PHRASE)), nullptr, nullptr);
    OPENSSL_free(der);
    return contentOf(bio.get());
}

QByteArray encryptedCertificate(X509* x509)
{
    return encryptedBlock("CERTIFICATE",
                          [x509](unsigned char** der) { return i2d_X509(x509, der); });
}

QByteArray encryptedKey(EVP_PKEY* key)
{
    return encryptedBlock("EC PRIVATE KEY",
                          [key](unsigned char** der) { return i2d_PrivateKey(key, der); });
}

QByteArray encryptedPkcs8Key(EVP_PKEY* key)
{
    const vela::BioHandle bio(BIO_new(BIO_s_mem()));
    PEM_write_bio_PKCS8PrivateKey(bio.get(), key, EVP_aes_128_cbc(), const_cast<char*>(PASS_PHRASE),
                                  int(strlen(PASS_PHRASE)), nullptr, nullptr);
    return contentOf(bio.get());
}

} // namespace

class TerminalTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void readingThatAsksIsNoticed_data();
    void readingThatAsksIsNoticed();
    void nothingAsksForAPassPhrase_data();
    void nothingAsksForAPassPhrase();

private:
    test::PemDirectory m_directory;
};

void TerminalTest::initTestCase()
{
    const test::Authority authority(QStringLiteral("Authority under lock and key"));
    const test::Identity server = authority.issue();
    m_directory.writeCertificate(QStringLiteral("server.pem"), server);
    m_directory.writeKey(QStringLiteral("server.key"), server);
    m_directory.write(QStringLiteral("pkcs8.key"), encryptedPkcs8Key(server.key()));
    m_directory.write(QStringLiteral("traditional.key"), encryptedKey(server.key()));
    const QByteArray root = encryptedCertificate(authority.root.x509());
    m_directory.write(QStringLiteral("encrypted.pem"), root);
    QVERIFY(QDir(m_directory.path()).mkdir(QStringLiteral("hashed")));
    const unsigned long hash = X509_subject_name_hash(authority.root.x509());
    m_directory.write(QStringLiteral("hashed/%1.0").arg(hash, 8, 16, QLatin1Char('0')), root);
}

void TerminalTest::readingThatAsksIsNoticed_data()
{
    QTest::addColumn<bool>("hasTerminal");
    QTest::newRow("at a terminal") << true;
    QTest::newRow("with a standard input only") << false;
}

void TerminalTest::readingThatAsksIsNoticed()
{
    QFETCH(bool, hasTerminal);
    const Outcome outcome = run("carelessly", m_directory.path(), hasTerminal);
    QVERIFY2(outcome.printed.contains("pass phrase"), outcome.printed.constData());
    QVERIFY(outcome.inputLeft != TYPED);
}

void TerminalTest::nothingAsksForAPassPhrase_data()
{
    QTest::addColumn<QByteArray>("what");
    QTest::addColumn<bool>("hasTerminal");
    QTest::addColumn<QByteArray>("beginning");
    QTest::addColumn<QByteArray>("end");
    const auto rows = [](const char* what, const char* beginning, const char* end = "") {
        for (const bool hasTerminal : {true, false}) {
            QTest::addRow("%s, %s", what, hasTerminal ? "terminal" : "standard input")
                << QByteArray(what) << hasTerminal << QByteArray(beginning) << QByteArray(end);
        }
    };
    rows("PKCS #8 key", "Error loading private key, error:", "bad password read");
    rows("traditional key", "Error loading private key, error:", "bad password read");
    rows("certificate of a server", "Error loading certificate, error:", "bad password read");
    rows("authorities in a file",
         "Failed to load the list of trusted CAs: error:", "bad password read");
    rows("authorities in a directory", "Unable to get local issuer certificate");
    rows("default authorities in a file", "no error");
    rows("default authorities in a directory", "Unable to get local issuer certificate");
    rows("certificates in memory", "000");
    rows("certificate in a file", "failed");
    rows("roots of a generic store", "0");
    rows("roots of the system", "5");
}

void TerminalTest::nothingAsksForAPassPhrase()
{
    QFETCH(QByteArray, what);
    QFETCH(bool, hasTerminal);
    QFETCH(QByteArray, beginning);
    QFETCH(QByteArray, end);
    const Outcome outcome = run(what, m_directory.path(), hasTerminal);
    QCOMPARE(outcome.printed, QByteArray());
    QVERIFY(outcome.ended);
    QCOMPARE(outcome.inputLeft, TYPED);
    QVERIFY2(outcome.result.startsWith(beginning), outcome.result.constData());
    QVERIFY2(outcome.result.endsWith(end), outcome.result.constData());
}

int main(int argc, char** argv)
{
    if (argc == 3 && QByteArray(argv[2]).startsWith('/'))
        return runAsReader(argc, argv);
    QCoreApplication application(argc, argv);
    TerminalTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_terminal.moc"

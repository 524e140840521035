// SPDX-License-Identifier: BSD-3-Clause

/*
    What a verdict of the system's store costs, next to what OpenSSL's own X509_verify_cert() takes
    for the same chain with the same roots: the machine's whole bundle and the one root that the
    chains of this program end in. A chain is an end certificate, an intermediate and the root.

    Both sides are handed certificates that are parsed already, though no certificate twice: the
    engine remembers which signatures it has found good. Told are microseconds of processor time.

    Beside these stand chains of up to 1 MiB that were made to be dear, of which none may cost more
    than 100 ms, and what a store keeps of a million verifications.
*/

#include "chains/HostileInputs.h"
#include "chains/StoreMemory.h"
#include "common/Options.h"
#include "common/Results.h"
#include "common/Rounds.h"

#include <Ferrule/WinCertStore.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTextStream>

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <ctime>
#include <functional>

namespace {

using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;
using vela::WinCertStore;

constexpr int VERIFICATIONS = 400; // A round and side.
constexpr int MANY = 100;          // As many peers as a busy host might meet in turn.
constexpr int STRANGERS = 400;     // More than the store remembers.
constexpr double LIMIT = 1.5;

[[noreturn]] void fail(const char* what)
{
    bench::fail(QString::fromLatin1(what));
}

EVP_PKEY* makeKey(int type)
{
    EVP_PKEY_CTX* generator = EVP_PKEY_CTX_new_id(type, nullptr);
    EVP_PKEY* parameters = nullptr;
    EVP_PKEY* key = nullptr;
    if (type == EVP_PKEY_EC) {
        EVP_PKEY_paramgen_init(generator);
        EVP_PKEY_CTX_set_ec_paramgen_curve_nid(generator, NID_X9_62_prime256v1);
        EVP_PKEY_CTX_set_ec_param_enc(generator, OPENSSL_EC_NAMED_CURVE);
        EVP_PKEY_paramgen(generator, &parameters);
        EVP_PKEY_CTX_free(generator);
        generator = EVP_PKEY_CTX_new(parameters, nullptr);
    }
    EVP_PKEY_keygen_init(generator);
    if (EVP_PKEY_keygen(generator, &key) != 1)
        fail("no key could be made");
    EVP_PKEY_CTX_free(generator);
    EVP_PKEY_free(parameters);
    return key;
}

void addExtension(X509* x509, int nid, const char* value)
{
    X509V3_CTX context;
    X509V3_set_ctx(&context, x509, x509, nullptr, nullptr, 0);
    QByteArray text(value);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, text.data());
    if (!extension || X509_add_ext(x509, extension, -1) != 1)
        fail(value);
    X509_EXTENSION_free(extension);
}

//! A certificate with its key; both stay until the process ends.
struct Party
{
    QByteArray der() const
    {
        unsigned char* encoded = nullptr;
        const int length = i2d_X509(x509, &encoded);
        const QByteArray result(reinterpret_cast<const char*>(encoded), length);
        OPENSSL_free(encoded);
        return result;
    }

    X509* x509;
    EVP_PKEY* key;
};

Party makeParty(const QByteArray& name, EVP_PKEY* key, const Party* issuer, bool isAuthority)
{
    static int serial = 0;
    X509* x509 = X509_new();
    const Party signer = issuer ? *issuer : Party{x509, key};
    X509_set_version(x509, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(x509), ++serial);
    X509_gmtime_adj(X509_get_notBefore(x509), -86400);
    X509_gmtime_adj(X509_get_notAfter(x509), 86400);
    X509_set_pubkey(x509, key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(x509), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(name.constData()), -1, -1, 0);
    X509_set_issuer_name(x509, X509_get_subject_name(signer.x509));
    addExtension(x509, NID_basic_constraints, isAuthority ? "critical,CA:TRUE" : "CA:FALSE");
    addExtension(x509, NID_key_usage,
                 isAuthority ? "critical,keyCertSign" : "critical,digitalSignature");
    addExtension(x509, NID_subject_key_identifier, "hash");
    if (X509_sign(x509, signer.key, EVP_sha256()) == 0)
        fail("a certificate could not be signed");
    return {x509, key};
}

X509* parse(const QByteArray& der)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(der.constData());
    X509* x509 = d2i_X509(nullptr, &bytes, der.size());
    if (!x509)
        fail("a certificate could not be parsed");
    return x509;
}

//! The encodings of chains with keys of one kind, which differ in their end certificates.
class Chains
{
public:
    Chains(int keyType, const QByteArray& name)
    {
        const Party root = makeParty(name + " Root", makeKey(keyType), nullptr, true);
        const Party intermediate = makeParty(name + " Intermediate", makeKey(keyType), &root, true);
        m_root = root.der();
        m_intermediate = intermediate.der();
        EVP_PKEY* key = makeKey(keyType);
        for (int i = 0; i < STRANGERS; ++i) {
            const QByteArray host = "host " + QByteArray::number(i);
            m_leaves.append(makeParty(host, key, &intermediate, false).der());
        }
    }

    const QByteArray& root() const { return m_root; }
    QList<QByteArray> ders(int number) const
    {
        return {m_leaves.at(number), m_intermediate, m_root};
    }

    //! Returns one of the chains, parsed anew as a handshake does. The caller frees each.
    QList<X509*> parsed(int number) const
    {
        return {parse(m_leaves.at(number)), parse(m_intermediate), parse(m_root)};
    }

private:
    QByteArray m_root;
    QByteArray m_intermediate;
    QList<QByteArray> m_leaves;
};

//! Writes the bundle of both sides and returns its path.
QByteArray writeBundle(const QTemporaryDir& directory, std::initializer_list<QByteArray> roots)
{
    QFile machine(QStringLiteral("/etc/ssl/certs/ca-certificates.crt"));
    if (!machine.open(QIODevice::ReadOnly))
        fail("this machine has no bundle of authorities");
    QByteArray pem = machine.readAll() + '\n' + bench::hostileRoots();
    for (const QByteArray& root : roots)
        pem += SslCertificate(parse(root), true).encodePem().toLatin1();
    QFile bundle(directory.filePath(QStringLiteral("bundle.pem")));
    if (!bundle.open(QIODevice::WriteOnly) || bundle.write(pem) != pem.size())
        fail("the bundle could not be written");
    return QFile::encodeName(bundle.fileName());
}

//! Peers are known that have been met; others are strangers each time that they come.
int toMeetFirst(int leaves)
{
    return leaves < STRANGERS ? leaves : 0;
}

/*!
    Returns the microseconds of processor time per call of \a verify, which is true. The calls
   before number \a first do not count.
*/
double measure(int first, int count, const std::function<bool(int)>& verify)
{
    int good = 0;
    for (int i = 0; i < first; ++i)
        good += verify(i) ? 1 : 0;
    const std::clock_t start = std::clock();
    for (int i = first; i < first + count; ++i)
        good += verify(i) ? 1 : 0;
    const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    if (good != first + count)
        fail("a chain was not found valid");
    return seconds * 1e6 / count;
}

double measureStore(WinCertStore& store, const Chains& chains, int leaves, int count)
{
    const int first = toMeetFirst(leaves);
    QList<SslCertificateChain> all;
    for (int i = 0; i < first + count; ++i) {
        SslCertificateChain chain;
        for (X509* x509 : chains.parsed(i % leaves))
            chain << SslCertificatePtr(new SslCertificate(x509, true));
        all.append(chain);
    }
    return measure(first, count, [&](int i) { return store.verify(all.at(i)) == vela::VerifyOk; });
}

double measureEngine(X509_STORE* store, const Chains& chains, int leaves, int count)
{
    const int first = toMeetFirst(leaves);
    QList<QList<X509*>> all;
    QList<STACK_OF(X509)*> others;
    for (int i = 0; i < first + count; ++i) {
        all.append(chains.parsed(i % leaves));
        others.append(sk_X509_new_null());
        sk_X509_push(others.last(), all.last().at(1));
        sk_X509_push(others.last(), all.last().at(2));
    }
    const double result = measure(first, count, [&](int i) {
        X509_STORE_CTX* context = X509_STORE_CTX_new();
        X509_STORE_CTX_init(context, store, all.at(i).first(), others.at(i));
        const bool isValid = X509_verify_cert(context) == 1;
        X509_STORE_CTX_free(context);
        return isValid;
    });
    for (int i = 0; i < first + count; ++i) {
        sk_X509_pop_free(others.at(i), X509_free);
        X509_free(all.at(i).first());
    }
    return result;
}

struct Case
{
    const char* name;
    const Chains& chains;
    int leaves;
    bool hasLimit;
};

//! Appends what measures both sides in \a one case.
void addTasks(QList<std::function<void(bool)>>& tasks, bench::Results& results, const Case& one,
              WinCertStore& store, X509_STORE* engine, int count)
{
    const auto key = [&](const char* subject) {
        return bench::Key{QString::fromLatin1(one.name), QString(), QString(),
                          QString::fromLatin1(subject)};
    };
    const auto add = [&](const bench::Key& of, const std::function<double()>& sample) {
        tasks.append([&results, of, sample](bool counts) {
            const double microseconds = sample();
            if (counts)
                results.add(of, microseconds, QStringLiteral("us"), bench::Better::Less);
        });
    };
    const Chains& chains = one.chains;
    const int leaves = one.leaves;
    add(key("Ferrule"),
        [&store, &chains, leaves, count] { return measureStore(store, chains, leaves, count); });
    add(key("X509_verify_cert"),
        [engine, &chains, leaves, count] { return measureEngine(engine, chains, leaves, count); });
    if (one.hasLimit)
        results.expect(key("Ferrule"), key("X509_verify_cert"), LIMIT);
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const bench::Options options =
        bench::parseOptions(QStringLiteral("Measures the system store's verdicts on chains."));
    const QTemporaryDir directory;
    const Chains rsa(EVP_PKEY_RSA, "RSA");
    const Chains ec(EVP_PKEY_EC, "P-256");
    const QByteArray bundle = writeBundle(directory, {rsa.root(), ec.root()});
    qputenv("SSL_CERT_FILE", bundle);
    qputenv("SSL_CERT_DIR", "");
    qputenv("XDG_DATA_HOME", QFile::encodeName(directory.path()));
    WinCertStore store(nullptr);
    X509_STORE* engine = X509_STORE_new();
    if (X509_STORE_load_locations(engine, bundle.constData(), nullptr) != 1)
        fail("the engine does not read the bundle");

    bench::Results results(QStringLiteral("chains"));
    QList<std::function<void(bool)>> tasks;
    // Strangers have no limit: the store decodes a certificate that it has not met.
    const Case cases[] = {
        {"RSA 2048, one peer", rsa, 1, true},           {"RSA 2048, many peers", rsa, MANY, true},
        {"RSA 2048, strangers", rsa, STRANGERS, false}, {"P-256, one peer", ec, 1, true},
        {"P-256, many peers", ec, MANY, true},          {"P-256, strangers", ec, STRANGERS, false},
    };
    const int count = bench::scaled(options, VERIFICATIONS);
    for (const Case& one : cases)
        addTasks(tasks, results, one, store, engine, count);
    bench::addHostileTasks(tasks, results);
    bench::runRounds(options.rounds, tasks);
    bench::measureMemory(ec.ders(0), options, results);
    const int status = results.finish(options);
    X509_STORE_free(engine);
    return status;
}

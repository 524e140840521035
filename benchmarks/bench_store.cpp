// SPDX-License-Identifier: BSD-3-Clause

/*
    What it costs to fill a store and to find something in it, for each operation and next to what
    one would write without the store: a plain scan of a list of chains, and OpenSSL's own readers
    and stores.

    Each round does all operations, in another order of certificates: a store that is filled is what
    is searched, so the operations of one round belong together. The certificates are made
    before any clock runs; wanted are other objects than those that are stored.
*/

#include "common/Options.h"
#include "common/Results.h"
#include "common/Rounds.h"

#include <Ferrule/GenericCertStore.h>

#include <QtCore/QBuffer>
#include <QtCore/QFile>
#include <QtCore/QMap>
#include <QtCore/QTextStream>

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <numeric>
#include <random>

namespace {

using vela::GenericCertStore;
using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;

constexpr int CHAINS = 10000;
constexpr int SCANS = 100;           // Scans are slow; so many give a steady mean.
constexpr int ENGINE_CHAINS = 2000;  // OpenSSL sorts its store at every addition.
constexpr unsigned int SEED = 10000; // Every run asks for the same.

[[noreturn]] void fail(const char* what)
{
    bench::fail(QString::fromLatin1(what));
}

EVP_PKEY* makeKey()
{
    EVP_PKEY_CTX* generator = EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr);
    EVP_PKEY* parameters = nullptr;
    EVP_PKEY* key = nullptr;
    EVP_PKEY_paramgen_init(generator);
    EVP_PKEY_CTX_set_ec_paramgen_curve_nid(generator, NID_X9_62_prime256v1);
    EVP_PKEY_paramgen(generator, &parameters);
    EVP_PKEY_CTX_free(generator);
    generator = EVP_PKEY_CTX_new(parameters, nullptr);
    EVP_PKEY_keygen_init(generator);
    if (EVP_PKEY_keygen(generator, &key) != 1)
        fail("no key could be made");
    EVP_PKEY_CTX_free(generator);
    EVP_PKEY_free(parameters);
    return key;
}

X509* makeCertificate(int number, EVP_PKEY* key)
{
    X509* x509 = X509_new();
    ASN1_INTEGER_set(X509_get_serialNumber(x509), number + 1);
    X509_gmtime_adj(X509_get_notBefore(x509), -3600);
    X509_gmtime_adj(X509_get_notAfter(x509), 3600);
    X509_set_pubkey(x509, key);
    const QByteArray name = QByteArrayLiteral("host ") + QByteArray::number(number);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(x509), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(name.constData()), -1, -1, 0);
    if (X509_sign(x509, key, EVP_sha256()) == 0)
        fail("a certificate could not be signed");
    return x509;
}

//! The certificates, each as two objects that are equal.
struct Certificates
{
    explicit Certificates(int count)
    {
        EVP_PKEY* key = makeKey();
        for (int i = 0; i < count; ++i) {
            X509* x509 = makeCertificate(i, key);
            stored.append(SslCertificatePtr(new SslCertificate(x509, true)));
            wanted.append(SslCertificatePtr(new SslCertificate(x509, false)));
            names.append(stored.last()->subjectCommonName());
        }
        EVP_PKEY_free(key);
    }

    QList<SslCertificatePtr> stored;
    QList<SslCertificatePtr> wanted;
    QStringList names;
};

//! Chains in a list and nothing else.
class PlainList
{
public:
    int indexOf(const SslCertificatePtr& certificate) const
    {
        return first([&](const SslCertificatePtr& endCert) {
            return SslCertificate::equals(endCert, certificate);
        });
    }

    int indexOfName(const QString& name) const
    {
        return first(
            [&](const SslCertificatePtr& endCert) { return endCert->subjectCommonName() == name; });
    }

    void append(const SslCertificatePtr& certificate)
    {
        m_chains.append(SslCertificateChain(QList<SslCertificatePtr>{certificate}));
    }

    void add(const SslCertificatePtr& certificate)
    {
        if (indexOf(certificate) < 0)
            append(certificate);
    }

private:
    template <typename Matches>
    int first(Matches matches) const
    {
        for (int i = 0; i < m_chains.size(); ++i) {
            if (matches(m_chains.at(i).endCert()))
                return i;
        }
        return -1;
    }

    QList<SslCertificateChain> m_chains;
};

//! A store of OpenSSL's, which finds certificates by their subject.
class EngineStore
{
public:
    EngineStore()
        : m_context(X509_STORE_CTX_new())
    {
        X509_STORE_CTX_init(m_context, m_store, nullptr, nullptr);
    }

    ~EngineStore()
    {
        X509_STORE_CTX_free(m_context);
        X509_STORE_free(m_store);
    }

    void add(const SslCertificatePtr& certificate)
    {
        X509_STORE_add_cert(m_store, certificate->x509());
    }

    bool contains(const SslCertificatePtr& certificate)
    {
        auto* const found =
            X509_STORE_get1_certs(m_context, X509_get_subject_name(certificate->x509()));
        bool contained = false;
        for (int i = 0; found && i < sk_X509_num(found); ++i)
            contained = contained || X509_cmp(sk_X509_value(found, i), certificate->x509()) == 0;
        sk_X509_pop_free(found, X509_free);
        return contained;
    }

private:
    X509_STORE* m_store = X509_STORE_new();
    X509_STORE_CTX* m_context;
};

//! The microseconds of processor time per call of each operation, one number a round.
using Results = QMap<QString, QList<double>>;

//! Calls \a operation with \a count numbers of \a order and notes what one call took.
void measure(Results& results, const QString& name, const QVector<int>& order, int count,
             const std::function<bool(int)>& operation)
{
    int good = 0;
    const std::clock_t start = std::clock();
    for (int i = 0; i < count; ++i)
        good += operation(order.at(i)) ? 1 : 0;
    const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    results[name].append(seconds * 1e6 / count);
    if (good != count)
        fail(qPrintable(name));
}

void measureImport(Results& results)
{
    QFile file(QStringLiteral(":/Certificates/RootCerts.pem"));
    if (!file.open(QIODevice::ReadOnly))
        fail("there is no bundle");
    QByteArray text = file.readAll();
    const int blocks = text.count("-----BEGIN CERTIFICATE-----");
    const QVector<int> once{0};

    measure(results, QStringLiteral("import"), once, 1, [&](int) {
        QBuffer buffer(&text);
        buffer.open(QIODevice::ReadOnly);
        GenericCertStore store(nullptr);
        store.importRootCerts(&buffer, vela::AcceptAlways);
        return store.count() == blocks;
    });
    measure(results, QStringLiteral("engine import"), once, 1, [&](int) {
        X509_STORE* store = X509_STORE_new();
        BIO* bio = BIO_new_mem_buf(text.data(), text.size());
        int count = 0;
        while (X509* x509 = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr)) {
            count += X509_STORE_add_cert(store, x509);
            X509_free(x509);
        }
        BIO_free(bio);
        X509_STORE_free(store);
        return count == blocks;
    });
    for (const QString& name : {QStringLiteral("import"), QStringLiteral("engine import")})
        results[name].last() /= blocks;
}

void measureRound(Results& results, const Certificates& all, const QVector<int>& order)
{
    const int chains = order.size();
    GenericCertStore store(nullptr);
    const GenericCertStore& constStore = store;
    PlainList plain;
    EngineStore engine;
    const auto add = [&](int i) { return store.addOneCertificate(all.stored.at(i)) >= 0; };
    const auto found = [&](const SslCertificateChain& chain, int i) {
        return chain.size() == 1 && chain.at(0) == all.stored.at(i);
    };
    measure(results, QStringLiteral("add"), order, chains, add);
    // Where the list is half full an addition takes what it takes in the mean.
    for (int i : order.mid(0, chains / 2))
        plain.append(all.stored.at(i));
    measure(results, QStringLiteral("scan add"), order.mid(chains / 2), SCANS,
            [&](int i) { return plain.add(all.stored.at(i)), true; });
    for (int i : order.mid(chains / 2 + SCANS))
        plain.append(all.stored.at(i));
    measure(results, QStringLiteral("engine add"), order, ENGINE_CHAINS,
            [&](int i) { return engine.add(all.stored.at(i)), true; });

    QVector<int> wanted = order;
    std::shuffle(wanted.begin(), wanted.end(), std::mt19937(SEED));
    measure(results, QStringLiteral("indexOf"), wanted, chains,
            [&](int i) { return store.indexOf(all.wanted.at(i)) >= 0; });
    measure(results, QStringLiteral("operator[] certificate"), wanted, chains,
            [&](int i) { return found(constStore[all.wanted.at(i)], i); });
    measure(results, QStringLiteral("operator[] name"), wanted, chains,
            [&](int i) { return found(constStore[all.names.at(i)], i); });
    measure(results, QStringLiteral("verify"), wanted, chains,
            [&](int i) { return store.verify(all.wanted.at(i)) == vela::VerifyUnknown; });
    measure(results, QStringLiteral("scan certificate"), wanted, SCANS,
            [&](int i) { return plain.indexOf(all.wanted.at(i)) >= 0; });
    measure(results, QStringLiteral("scan name"), wanted, SCANS,
            [&](int i) { return plain.indexOfName(all.names.at(i)) >= 0; });
    // Those that were added.
    QVector<int> known = order.mid(0, ENGINE_CHAINS);
    std::shuffle(known.begin(), known.end(), std::mt19937(SEED));
    measure(results, QStringLiteral("engine certificate"), known, ENGINE_CHAINS,
            [&](int i) { return engine.contains(all.wanted.at(i)); });
}

struct Row
{
    const char* operation;
    const char* peer;     //!< The key of its results.
    const char* peerText; //!< The name of its subject.
};

const Row ROWS[] = {
    {"import", "engine import", "PEM_read_bio_X509, X509_STORE_add_cert"},
    {"add", "scan add", "plain scan"},
    {"add", "engine add", "X509_STORE_add_cert (2,000)"},
    {"indexOf", "scan certificate", "plain scan"},
    {"indexOf", "engine certificate", "X509_STORE_get1_certs (2,000)"},
    {"operator[] certificate", "scan certificate", "plain scan"},
    {"operator[] name", "scan name", "plain scan"},
    {"verify", "scan certificate", "plain scan"},
};

//! Hands one round's results on, each operation together with what it is next to.
void addAll(bench::Results& results, const Results& round)
{
    const auto add = [&](const Row& row, const char* subject, const char* key) {
        results.add({QString::fromLatin1(row.operation), QString(), QString(),
                     QString::fromLatin1(subject)},
                    round.value(QString::fromLatin1(key)).constFirst(), QStringLiteral("us"),
                    bench::Better::Less);
    };
    const char* last = nullptr;
    for (const Row& row : ROWS) {
        if (!last || qstrcmp(last, row.operation) != 0)
            add(row, "Ferrule", row.operation);
        last = row.operation;
        add(row, row.peerText, row.peer);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const bench::Options options =
        bench::parseOptions(QStringLiteral("Measures what stores cost: filling and searching."));
    // At least what the scans and the engine take.
    const int chains = std::max(2 * ENGINE_CHAINS, bench::scaled(options, CHAINS));
    const Certificates certificates(chains);
    QVector<int> order(chains);
    std::iota(order.begin(), order.end(), 0);
    std::mt19937 generator(SEED);
    bench::Results results(QStringLiteral("store"));
    const auto round = [&](bool counts) {
        Results measured;
        std::shuffle(order.begin(), order.end(), generator);
        measureImport(measured);
        measureRound(measured, certificates, order);
        if (counts)
            addAll(results, measured);
    };
    bench::runRounds(options.rounds, {round});
    return results.finish(options);
}

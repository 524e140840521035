// SPDX-License-Identifier: BSD-3-Clause

/*
    Chains that were valid once. Each octet pair of an input is one change of them, made before the
    certificates are signed or after. What the judge calls valid is checked again, link by link, by
    what is known of the changes and with nothing of the judge's own.
*/

#include "fuzz/Harness.h"
#include "tests/common/DerWriter.h"

#include "store/validation/IntermediateMemory.h"
#include "store/validation/PathBuilder.h"

#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <set>
#include <vector>

namespace {

using namespace vela;
using test::der::sequence;
using test::der::value;

constexpr std::size_t CHAIN = 5; // The end certificate, three authorities, the root.
constexpr std::size_t MAX_CHANGES = 40;
constexpr qint64 NOW = 1700000000; // Within the certificates' times.
constexpr qint64 LATER = 4000000000;

//! Names that constraints and certificates take their host names from.
constexpr std::array<const char*, 8> HOSTS = {"example.com",  "www.example.com", "bank.com",
                                              "*.bank.com",   "10.0.0.1",        "Example, Inc.",
                                              ".example.com", "a.bank.com"};

QByteArray host(unsigned char choice)
{
    return HOSTS[choice % HOSTS.size()];
}

EVP_PKEY* newKey()
{
    EVP_PKEY_CTX* const curve = EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr);
    EVP_PKEY* parameters = nullptr;
    EVP_PKEY* key = nullptr;
    EVP_PKEY_paramgen_init(curve);
    EVP_PKEY_CTX_set_ec_paramgen_curve_nid(curve, NID_X9_62_prime256v1);
    EVP_PKEY_CTX_set_ec_param_enc(curve, OPENSSL_EC_NAMED_CURVE);
    EVP_PKEY_paramgen(curve, &parameters);
    EVP_PKEY_CTX* const generator = EVP_PKEY_CTX_new(parameters, nullptr);
    EVP_PKEY_keygen_init(generator);
    EVP_PKEY_keygen(generator, &key);
    EVP_PKEY_CTX_free(generator);
    EVP_PKEY_CTX_free(curve);
    EVP_PKEY_free(parameters);
    return key;
}

template <typename Object, typename Encode>
QByteArray encoded(Object* object, Encode encode)
{
    unsigned char* bytes = nullptr;
    const int length = encode(object, &bytes);
    const QByteArray result(reinterpret_cast<const char*>(bytes), qMax(length, 0));
    OPENSSL_free(bytes);
    return result;
}

//! Made once; which one it is has no effect on what a change does.
EVP_PKEY* keyOf(std::size_t index)
{
    static const std::array<EVP_PKEY*, CHAIN + 1> keys = [] {
        std::array<EVP_PKEY*, CHAIN + 1> made = {};
        std::generate(made.begin(), made.end(), newKey);
        return made;
    }();
    return keys[index];
}

/*! What a certificate is to be, as far as the check wants to know. */
struct Plan
{
    QByteArray subject;
    QByteArray issuer;
    QByteArray permitted; //!< A host name; no constraint if empty.
    QByteArray excluded;
    QByteArray alternativeName;
    QByteArray serial = QByteArray(1, '\1');
    bool isAuthority = true;
    bool mayCertSign = true;
    bool hasUnknownCritical = false;
    int pathLength = -1;
    std::size_t signer = 0;
    int flippedByte = -1; //!< After the signature was made.
    bool isLeftOut = false;
    bool isTrusted = false;
};

QByteArray nameOf(const QByteArray& text)
{
    return test::der::commonName(text);
}

QByteArray subtree(unsigned char kind, const QByteArray& name)
{
    return name.isEmpty() ? QByteArray() : value(kind, sequence(value(test::der::DnsName, name)));
}

QByteArray extensionsOf(const Plan& plan)
{
    QByteArray basic;
    if (plan.isAuthority)
        basic = value(test::der::Boolean, "\xFF");
    if (plan.isAuthority && plan.pathLength >= 0)
        basic += value(test::der::Integer, QByteArray(1, char(plan.pathLength)));
    QByteArray all = test::der::extension("551d13", sequence(basic));
    const QByteArray usage =
        plan.mayCertSign ? QByteArray("\x02\x04", 2) : QByteArray("\x07\x80", 2);
    all += test::der::extension("551d0f", value(test::der::BitString, usage));
    if (!plan.permitted.isEmpty() || !plan.excluded.isEmpty())
        all += test::der::extension(
            "551d1e", sequence(subtree(0xA0, plan.permitted) + subtree(0xA1, plan.excluded)));
    if (!plan.alternativeName.isEmpty())
        all += test::der::extension("551d11",
                                    sequence(value(test::der::DnsName, plan.alternativeName)));
    if (plan.hasUnknownCritical)
        all += sequence(test::der::object("2a030405") + value(test::der::Boolean, "\xFF")
                        + value(test::der::OctetString, "x"));
    return all;
}

QByteArray make(const Plan& plan, std::size_t index)
{
    test::der::Certificate one;
    one.subject = nameOf(plan.subject);
    one.issuer = nameOf(plan.issuer);
    one.serial = plan.serial;
    one.key = encoded(keyOf(index), i2d_PUBKEY);
    one.extensions = extensionsOf(plan);
    const QByteArray der = test::der::encode(one);
    const auto* cursor = reinterpret_cast<const unsigned char*>(der.constData());
    X509* const x509 = d2i_X509(nullptr, &cursor, der.size());
    FUZZ_CHECK(x509 && X509_sign(x509, keyOf(plan.signer), EVP_sha256()) > 0);
    QByteArray result = encoded(x509, i2d_X509);
    X509_free(x509);
    if (plan.flippedByte >= 0) {
        const int position = plan.flippedByte % result.size();
        result[position] = char(result.at(position) ^ 1);
    }
    return result;
}

using Plans = std::array<Plan, CHAIN>;

Plans validPlans()
{
    Plans plans;
    for (std::size_t i = 0; i < CHAIN; ++i) {
        plans[i].subject = "Authority " + QByteArray::number(int(i));
        plans[i].issuer = "Authority " + QByteArray::number(int(std::min(i + 1, CHAIN - 1)));
        plans[i].signer = std::min(i + 1, CHAIN - 1);
    }
    plans[0].subject = "www.example.com";
    plans[0].isAuthority = false;
    plans[0].mayCertSign = false;
    plans[CHAIN - 1].isTrusted = true;
    return plans;
}

struct Question
{
    Plans plans = validPlans();
    qint64 time = NOW;
    std::vector<std::size_t> shown = {1, 2, 3, 4};
};

//! Makes the change \a what, of which \a how says more.
void change(Question* question, unsigned char what, unsigned char how)
{
    constexpr int CHANGES = 17;
    Plan& plan = question->plans[how % CHAIN];
    const unsigned char rest = how / CHAIN;
    switch (what % CHANGES) {
    case 0:
        plan.permitted = host(rest);
        break;
    case 1:
        plan.excluded = host(rest);
        break;
    case 2:
        plan.alternativeName = host(rest);
        break;
    case 3:
        plan.isAuthority = !plan.isAuthority;
        break;
    case 4:
        plan.mayCertSign = !plan.mayCertSign;
        break;
    case 5:
        plan.hasUnknownCritical = !plan.hasUnknownCritical;
        break;
    case 6:
        plan.pathLength = rest % 4;
        break;
    case 7:
        plan.signer = rest % (CHAIN + 1);
        break;
    case 8:
        plan.flippedByte = rest * 13;
        break;
    case 9:
        plan.isLeftOut = !plan.isLeftOut;
        break;
    case 10:
        plan.isTrusted = !plan.isTrusted;
        break;
    case 11:
        plan.issuer = question->plans[rest % CHAIN].subject;
        break;
    case 12:
        plan.subject = question->plans[rest % CHAIN].subject;
        break;
    case 13:
        question->plans[0].subject = host(how);
        break;
    case 14:
        question->time = how % 2 ? LATER : NOW;
        break;
    case 15:
        std::rotate(question->shown.begin(), question->shown.begin() + 1, question->shown.end());
        break;
    default:
        plan.serial = QByteArray(1, '\2');
        break;
    }
}

/*! The certificates that were made, to be judged and to be looked up. */
class Source : public CertificateSource
{
public:
    explicit Source(const Question& question)
    {
        for (std::size_t i = 0; i < CHAIN; ++i)
            m_ders.push_back(make(question.plans[i], i));
        for (const std::size_t i : question.shown) {
            if (question.plans[i].isLeftOut)
                continue;
            if (const auto outline = CertificateOutline::of(m_ders[i]))
                m_memory.add(m_ders[i], *outline);
        }
        WorkBudget budget(PathLimits().decoding);
        m_memory.prepare(&budget);
        for (std::size_t i = 0; i < CHAIN; ++i) {
            if (question.plans[i].isTrusted)
                m_trusted.insert(DecodedCertificate::fromDer(m_ders[i]));
        }
    }

    const QByteArray& der(std::size_t index) const { return m_ders[index]; }

    bool isTrusted(const DecodedCertificatePtr& certificate) const override
    {
        return m_trusted.count(certificate) != 0;
    }
    bool isProven(const DecodedCertificatePtr&) const override { return false; }
    std::vector<DecodedCertificatePtr>
    issuersOf(const DecodedCertificate& certificate) const override
    {
        return m_memory.issuersOf(certificate);
    }

private:
    std::vector<QByteArray> m_ders;
    IntermediateMemory m_memory;
    std::set<DecodedCertificatePtr> m_trusted;
};

//! Whether \a name is \a base or below it, label by label.
bool isBelow(const QByteArray& name, const QByteArray& base)
{
    const QList<QByteArray> labels = name.toLower().split('.');
    const QList<QByteArray> ends = base.toLower().split('.');
    if (base.startsWith('.'))
        return labels.size() >= ends.size()
               && labels.mid(labels.size() - ends.size() + 1) == ends.mid(1);
    return labels.size() >= ends.size() && labels.mid(labels.size() - ends.size()) == ends;
}

void checkNames(const Plan& end, const Plan& authority, bool isItself)
{
    QList<QByteArray> names;
    if (isItself)
        names.append(end.subject);
    if (!end.alternativeName.isEmpty())
        names.append(end.alternativeName);
    for (const QByteArray& name : names) {
        if (!authority.permitted.isEmpty())
            FUZZ_CHECK(isBelow(name, authority.permitted));
        if (!authority.excluded.isEmpty())
            FUZZ_CHECK(!isBelow(name, authority.excluded));
        const bool isConstrained = !authority.permitted.isEmpty() || !authority.excluded.isEmpty();
        FUZZ_CHECK(!isConstrained || !name.contains(' '));
    }
}

std::size_t indexOf(const Source& source, const QByteArray& der)
{
    std::size_t index = 0;
    while (index < CHAIN && source.der(index) != der)
        ++index;
    FUZZ_CHECK(index < CHAIN);
    return index;
}

bool isVerified(const DecodedCertificate& certificate, const DecodedCertificate& issuer)
{
    EVP_PKEY* const key = X509_get_pubkey(issuer.x509());
    const bool isGood = key && X509_verify(certificate.x509(), key) == 1;
    EVP_PKEY_free(key);
    ERR_clear_error();
    return isGood;
}

//! Every link again; the names of a certificate that issued itself are exempt.
void checkValid(const Question& question, const Source& source, const CertificatePath& path)
{
    const auto& elements = path.elements;
    FUZZ_CHECK(question.time == NOW);
    FUZZ_CHECK(source.isTrusted(elements.back().certificate));
    int below = 0;
    for (std::size_t i = 0; i < elements.size(); ++i) {
        const DecodedCertificate& certificate = *elements[i].certificate;
        const Plan& plan = question.plans[indexOf(source, certificate.der())];
        FUZZ_CHECK(!plan.hasUnknownCritical || plan.flippedByte >= 0);
        if (i + 1 < elements.size())
            FUZZ_CHECK(isVerified(certificate, *elements[i + 1].certificate));
        if (i == 0 || plan.flippedByte >= 0)
            continue;
        FUZZ_CHECK(plan.isAuthority && plan.mayCertSign);
        FUZZ_CHECK(plan.pathLength < 0 || below <= plan.pathLength);
        for (std::size_t j = 0; j < i; ++j) {
            const Plan& lower = question.plans[indexOf(source, elements[j].certificate->der())];
            if (lower.flippedByte < 0 && (j == 0 || lower.subject != lower.issuer))
                checkNames(lower, plan, j == 0);
        }
        below += plan.subject != plan.issuer ? 1 : 0;
    }
}

void checkAnswer(const PathAnswer& answer)
{
    const PathLimits limits;
    const JudgedPath& best = answer.best;
    FUZZ_CHECK(answer.work <= limits.work && answer.paths <= limits.paths);
    FUZZ_CHECK(answer.signatures <= limits.signatures);
    FUZZ_CHECK(!best.path.elements.empty() && best.path.elements.size() <= CHAIN);
    FUZZ_CHECK(best.elementErrors.size() == best.path.elements.size());
    for (const PathErrors errors : best.elementErrors)
        FUZZ_CHECK((best.errors & errors) == errors);
    const bool isTrusted = best.path.end == CertificatePath::End::Trusted;
    FUZZ_CHECK(isTrusted || best.errors != NoPathError);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Question question;
    for (std::size_t i = 0; i + 1 < std::min(size, 2 * MAX_CHANGES); i += 2)
        change(&question, data[i], data[i + 1]);
    const Source source(question);
    PathQuestion asked;
    PathAnswer answer;
    {
        const fuzz::ErrorQueueWatch watch;
        asked.certificate = DecodedCertificate::fromDer(source.der(0));
        asked.time = question.time;
        if (asked.certificate)
            answer = PathBuilder(source, asked).build();
    }
    if (!asked.certificate)
        return 0;
    checkAnswer(answer);
    if (answer.best.errors == NoPathError)
        checkValid(question, source, answer.best.path);
    FUZZ_CHECK(size > 0 || answer.best.errors == NoPathError);
    return 0;
}

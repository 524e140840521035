// SPDX-License-Identifier: BSD-3-Clause

/*
    Where Windows headers are absent, the library works with declarations of its own. Compiling this
    file proves that they have the values and the layouts of the real ones.
*/

#include <cstdint>

namespace declared {
#include "store/platform/CryptoApiDeclarations.h"
} // namespace declared

// The lists of all that the header declares are made from the header itself.
#include "CryptoApiNames.h"

// Kept under names that the macros of the Windows headers leave alone.
#define KEEP(name) constexpr auto DECLARED_##name = static_cast<std::uint32_t>(declared::name);
EACH_CONSTANT(KEEP)
#undef KEEP
static const declared::LPCSTR DECLARED_MEMORY_PROVIDER = declared::CERT_STORE_PROV_MEMORY;

#include "store/platform/CryptoApiWindows.h"

#include <QtTest/QtTest>

#include <cstddef>
#include <type_traits>

#define COMPARE(name)                                                                              \
    static_assert(DECLARED_##name == static_cast<std::uint32_t>(name), "value of " #name);
EACH_CONSTANT(COMPARE)
#undef COMPARE

#define COMPARE(type, field)                                                                       \
    static_assert(offsetof(declared::type, field) == offsetof(::type, field)                       \
                      && sizeof(declared::type::field) == sizeof(::type::field)                    \
                      && sizeof(declared::type) == sizeof(::type),                                 \
                  "place of " #type "::" #field);
EACH_FIELD(COMPARE)
#undef COMPARE

namespace {

template <typename Declared, typename Real>
constexpr bool isSameNumber()
{
    return std::is_integral<Declared>::value && std::is_integral<Real>::value
           && sizeof(Declared) == sizeof(Real)
           && std::is_signed<Declared>::value == std::is_signed<Real>::value;
}

static_assert(isSameNumber<declared::BYTE, BYTE>(), "BYTE");
static_assert(isSameNumber<declared::BOOLEAN, BOOLEAN>(), "BOOLEAN");
static_assert(isSameNumber<declared::BOOL, BOOL>(), "BOOL");
static_assert(isSameNumber<declared::DWORD, DWORD>(), "DWORD");
static_assert(isSameNumber<declared::HCRYPTPROV_LEGACY, HCRYPTPROV_LEGACY>(), "HCRYPTPROV_LEGACY");
static_assert(std::is_same_v<declared::LPSTR, LPSTR>, "LPSTR");
static_assert(std::is_same_v<declared::LPCSTR, LPCSTR>, "LPCSTR");
static_assert(std::is_same_v<declared::LPWSTR, LPWSTR>, "LPWSTR");
static_assert(std::is_same_v<declared::LPCWSTR, LPCWSTR>, "LPCWSTR");
static_assert(std::is_same_v<declared::HANDLE, HANDLE>, "HANDLE");
static_assert(std::is_same_v<declared::HCERTSTORE, HCERTSTORE>, "HCERTSTORE");
static_assert(std::is_same_v<declared::HCERTCHAINENGINE, HCERTCHAINENGINE>, "HCERTCHAINENGINE");
static_assert(std::is_same_v<declared::WAITORTIMERCALLBACK, WAITORTIMERCALLBACK>,
              "WAITORTIMERCALLBACK");

} // namespace

class CryptoApiDeclarationsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void memoryProviderIsTheRealOne();
};

//! The one constant that is a pointer, which no compiler compares before it runs.
void CryptoApiDeclarationsTest::memoryProviderIsTheRealOne()
{
    QCOMPARE(reinterpret_cast<quintptr>(DECLARED_MEMORY_PROVIDER),
             reinterpret_cast<quintptr>(CERT_STORE_PROV_MEMORY));
}

QTEST_GUILESS_MAIN(CryptoApiDeclarationsTest)
#include "tst_cryptoapideclarations.moc"

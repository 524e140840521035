// SPDX-License-Identifier: BSD-3-Clause

//! Host names against constraints. The lines of an input: permitted, excluded, alternative names,
//! and texts taken for the host name; in a line, names are parted by tabulators.

#include "fuzz/Harness.h"
#include "tests/common/DerWriter.h"

#include "store/validation/NameConstraints.h"

#include <QtCore/QList>

#include <algorithm>

namespace {

using namespace vela;
using test::der::sequence;
using test::der::value;

constexpr qint64 PLENTY = 1000000000;

QList<QByteArray> namesIn(const QList<QByteArray>& lines, int line)
{
    QList<QByteArray> names = lines.value(line).split('\t');
    names.removeAll({});
    return names;
}

QByteArray subtrees(unsigned char kind, const QList<QByteArray>& names)
{
    QByteArray all;
    for (const QByteArray& name : names)
        all += sequence(value(test::der::DnsName, name));
    return all.isEmpty() ? QByteArray() : value(kind, all);
}

NameConstraints read(const QList<QByteArray>& permitted, const QList<QByteArray>& excluded)
{
    const QByteArray der = sequence(subtrees(0xA0, permitted) + subtrees(0xA1, excluded));
    const auto* cursor = reinterpret_cast<const unsigned char*>(der.constData());
    const auto* const item = ASN1_ITEM_rptr(NAME_CONSTRAINTS);
    auto* const constraints =
        reinterpret_cast<NAME_CONSTRAINTS*>(ASN1_item_d2i(nullptr, &cursor, der.size(), item));
    FUZZ_CHECK(constraints);
    return NameConstraints(NameConstraintsHandle(constraints));
}

//! Whether \a name is made of nothing but labels that everybody takes for a host's.
bool isPlain(const QByteArray& name)
{
    const QList<QByteArray> labels = name.split('.');
    return std::all_of(labels.begin(), labels.end(), [](const QByteArray& label) {
        return !label.isEmpty() && std::all_of(label.begin(), label.end(), [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        });
    });
}

//! Whether \a name is \a base or below it, label by label.
bool isBelow(const QByteArray& name, const QByteArray& base)
{
    QList<QByteArray> labels = name.toLower().split('.');
    QList<QByteArray> ends = base.toLower().split('.');
    while (!ends.isEmpty()) {
        const QByteArray end = ends.takeLast();
        if (end.isEmpty() && ends.isEmpty())
            return !labels.isEmpty(); // Below a leading period.
        if (labels.isEmpty() || labels.takeLast() != end)
            return false;
    }
    return true;
}

bool isBelowAny(const QByteArray& name, const QList<QByteArray>& bases)
{
    return std::any_of(bases.begin(), bases.end(),
                       [&name](const QByteArray& base) { return isBelow(name, base); });
}

void check(PathErrors errors, const QByteArray& name, const QList<QByteArray>& permitted,
           const QList<QByteArray>& excluded)
{
    const bool isLimited = !permitted.isEmpty();
    if (errors == NoPathError) {
        FUZZ_CHECK(!isLimited || isBelowAny(name, permitted));
        FUZZ_CHECK(!isBelowAny(name, excluded));
    }
    const QList<QByteArray> bases = permitted + excluded;
    if (!isPlain(name) || !std::all_of(bases.begin(), bases.end(), isPlain))
        return;
    const bool isOutside = isLimited && !isBelowAny(name, permitted);
    const bool isExcluded = isBelowAny(name, excluded);
    FUZZ_CHECK((errors == NoPathError) == (!isOutside && !isExcluded));
    FUZZ_CHECK(bool(errors & NameExcluded) == isExcluded);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QList<QByteArray> lines =
        QByteArray(reinterpret_cast<const char*>(data), int(size)).split('\n');
    const QList<QByteArray> permitted = namesIn(lines, 0);
    const QList<QByteArray> excluded = namesIn(lines, 1);
    if (permitted.isEmpty() && excluded.isEmpty())
        return 0;
    const NameConstraints constraints = read(permitted, excluded);
    const fuzz::ErrorQueueWatch watch;
    for (const QByteArray& name : namesIn(lines, 2)) {
        WorkBudget budget(PLENTY);
        check(constraints.errorsOf(nullptr, {hostOfText(name)}, &budget), name, permitted,
              excluded);
        WorkBudget nothing(0);
        FUZZ_CHECK(constraints.errorsOf(nullptr, {hostOfText(name)}, &nothing) & NameNotComparable);
    }
    for (const QByteArray& text : namesIn(lines, 3)) {
        WorkBudget budget(PLENTY);
        const PathErrors errors = constraints.errorsOfHostTexts({text}, &budget);
        if (!addressOfText(text).isReadable)
            check(errors, text, permitted, excluded);
        FUZZ_CHECK(errors != NoPathError || hostOfText(text).isReadable
                   || addressOfText(text).isReadable);
    }
    return 0;
}

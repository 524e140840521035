// SPDX-License-Identifier: BSD-3-Clause
#include "cert/CertificateOutline.h"

#include <algorithm>
#include <array>
#include <vector>

namespace vela {

namespace {

constexpr unsigned char TAG_BIT_STRING = 0x03;
constexpr unsigned char TAG_OCTET_STRING = 0x04;
constexpr unsigned char TAG_OBJECT = 0x06;
constexpr unsigned char TAG_SEQUENCE = 0x30;
constexpr unsigned char TAG_SET = 0x31;
constexpr unsigned char TAG_VERSION = 0xA0;
constexpr unsigned char CLASS = 0xC0;
constexpr unsigned char CONTEXT_CLASS = 0x80;
constexpr unsigned char CONSTRUCTED = 0x20;
constexpr unsigned char LONG_TAG = 0x1F;
constexpr unsigned char MORE = 0x80; //!< Of a tag's or a length's octets.
constexpr std::size_t MAX_DEPTH = 32;

constexpr std::array<unsigned char, 7> OBJECT_CURVE_KEY = {0x2A, 0x86, 0x48, 0xCE,
                                                           0x3D, 0x02, 0x01};

using Bytes = const unsigned char*;

struct Span
{
    Bytes begin = nullptr;
    Bytes end = nullptr;

    std::size_t size() const { return std::size_t(end - begin); }
};

struct Element
{
    unsigned char tag = 0;
    bool hasLength = true; //!< Otherwise it ends with a mark that is not looked for.
    Span content;          //!< Without a length, everything behind.
};

std::size_t takeLength(Span* span, std::size_t octets)
{
    std::size_t length = 0;
    for (std::size_t i = 0; i < octets; ++i)
        length = length << 8 | *span->begin++;
    return length;
}

/*!
    Takes the first element off \a span; nothing when it does not lie wholly within. Whatever the
    engines read as an element is one here, the forms that certificates must not have included.
*/
std::optional<Element> take(Span* span)
{
    Span rest = *span;
    if (rest.size() < 2)
        return std::nullopt;
    Element element;
    element.tag = *rest.begin++;
    if ((element.tag & LONG_TAG) == LONG_TAG) {
        while (rest.size() > 1 && *rest.begin & MORE)
            ++rest.begin;
        ++rest.begin;
    }
    if (rest.size() == 0)
        return std::nullopt;
    const std::size_t first = *rest.begin++;
    element.hasLength = first != MORE;
    std::size_t length = element.hasLength ? first : rest.size();
    if (first > MORE) {
        std::size_t octets = first & ~std::size_t(MORE);
        for (; octets > 0 && rest.size() > 0 && *rest.begin == 0; --octets)
            ++rest.begin;
        if (octets > sizeof(quint32) || octets > rest.size())
            return std::nullopt;
        length = takeLength(&rest, octets);
    }
    if (length > rest.size())
        return std::nullopt;
    element.content = {rest.begin, rest.begin + length};
    span->begin = element.content.end;
    return element;
}

//! Takes an element that must have \a tag, and a length.
std::optional<Span> take(Span* span, unsigned char tag)
{
    const std::optional<Element> element = take(span);
    const bool isWanted = element && element->tag == tag && element->hasLength;
    return isWanted ? std::optional<Span>(element->content) : std::nullopt;
}

/*!
    What may have elements inside: a value that is made of some, octets that often are, and lists,
   of which engines do not ask that their tags say so.
*/
bool isNested(unsigned char tag)
{
    const bool isList = (tag | CONSTRUCTED) == TAG_SEQUENCE || (tag | CONSTRUCTED) == TAG_SET
                        || (tag & CLASS) == CONTEXT_CLASS;
    return tag & CONSTRUCTED || isList || tag == TAG_OCTET_STRING || tag == TAG_BIT_STRING;
}

//! Octets in pieces, between which an element may be torn apart that the engine puts together.
bool isInPieces(unsigned char tag)
{
    return tag == (TAG_OCTET_STRING | CONSTRUCTED) || tag == (TAG_BIT_STRING | CONSTRUCTED);
}

/*!
    Counts the elements in \a whole. What cannot be read as such counts as if it were full of the
    shortest there are, unless it is in octets that need not hold any.
*/
std::size_t countElements(Span whole)
{
    struct Level
    {
        Span rest;
        bool isText; //!< Octets that need not hold elements.
    };
    std::size_t count = 0;
    std::vector<Level> levels = {{whole, false}};
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.rest.size() == 0) {
            levels.pop_back();
            continue;
        }
        const bool isText = level.isText;
        const std::optional<Element> element = take(&level.rest);
        if (!element) {
            count += isText ? 0 : level.rest.size() / 2;
            levels.pop_back();
            continue;
        }
        ++count;
        if (!isNested(element->tag))
            continue;
        if (levels.size() == MAX_DEPTH || isInPieces(element->tag))
            count += element->content.size() / 2;
        else
            levels.push_back({element->content, isText || !(element->tag & CONSTRUCTED)});
    }
    return count;
}

//! Returns the subject's key information in what is signed of a certificate.
std::optional<Span> keyInformation(Span toBeSigned)
{
    constexpr int FIELDS_BEFORE = 5; // Serial number, algorithm, issuer, validity, subject.
    Span rest = toBeSigned;
    Span afterVersion = toBeSigned;
    if (take(&afterVersion, TAG_VERSION))
        rest = afterVersion;
    for (int i = 0; i < FIELDS_BEFORE; ++i) {
        if (!take(&rest))
            return std::nullopt;
    }
    return take(&rest, TAG_SEQUENCE);
}

/*!
    Tells \a outline what kind of key it is. Returns false when that is not plain to see: an engine
    might read such a key all the same, and on a curve of its own making can compute for ever.
*/
bool describeKey(Span information, CertificateOutline* outline)
{
    std::optional<Span> algorithm = take(&information, TAG_SEQUENCE);
    const std::optional<Span> key = take(&information, TAG_BIT_STRING);
    const std::optional<Span> object = algorithm ? take(&*algorithm, TAG_OBJECT) : std::nullopt;
    if (!object || !key)
        return false;
    outline->hasCurveKey =
        std::equal(object->begin, object->end, OBJECT_CURVE_KEY.begin(), OBJECT_CURVE_KEY.end());
    if (!outline->hasCurveKey)
        return true;
    Span parameters = *algorithm;
    outline->hasCurveParameters = parameters.size() != 0 && !take(&parameters, TAG_OBJECT);
    // Behind the number of unused bits: 4 is a whole point, 2 and 3 are half of one.
    constexpr std::size_t FORM = 1;
    outline->hasCompressedPoint = key->size() > FORM && key->begin[FORM] != 4;
    return true;
}

} // namespace

std::optional<CertificateOutline> CertificateOutline::of(const QByteArray& der)
{
    const auto* const begin = reinterpret_cast<Bytes>(der.constData());
    const Span whole = {begin, begin + der.size()};
    Span rest = whole;
    std::optional<Span> certificate = take(&rest, TAG_SEQUENCE);
    if (!certificate || rest.size() != 0)
        return std::nullopt;
    const std::optional<Span> toBeSigned = take(&*certificate, TAG_SEQUENCE);
    const std::optional<Span> information = toBeSigned ? keyInformation(*toBeSigned) : std::nullopt;
    if (!information || !take(&*certificate, TAG_SEQUENCE)
        || !take(&*certificate, TAG_BIT_STRING)) {
        return std::nullopt;
    }
    CertificateOutline outline;
    outline.bytes = whole.size();
    outline.elements = countElements(whole);
    return describeKey(*information, &outline) ? std::optional(outline) : std::nullopt;
}

qint64 CertificateOutline::cost() const
{
    constexpr qint64 EACH = 60000;
    constexpr qint64 PER_ELEMENT = 900;
    constexpr qint64 PER_BYTE = 20;
    constexpr qint64 CURVE_KEY = 40000;
    constexpr qint64 COMPRESSED_POINT = 1000000;
    return EACH + PER_ELEMENT * qint64(elements) + PER_BYTE * qint64(bytes)
           + (hasCurveKey ? CURVE_KEY : 0) + (hasCompressedPoint ? COMPRESSED_POINT : 0);
}

std::size_t CertificateOutline::footprint() const
{
    constexpr std::size_t EACH = 4096;
    constexpr std::size_t PER_ELEMENT = 160;
    constexpr std::size_t COPIES = 4;
    return EACH + PER_ELEMENT * elements + COPIES * bytes;
}

} // namespace vela

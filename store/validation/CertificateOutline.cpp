// SPDX-License-Identifier: BSD-3-Clause
#include "store/validation/CertificateOutline.h"

#include <algorithm>
#include <array>
#include <vector>

namespace vela {

namespace {

constexpr unsigned char TAG_BIT_STRING = 0x03;
constexpr unsigned char TAG_OCTET_STRING = 0x04;
constexpr unsigned char TAG_OBJECT = 0x06;
constexpr unsigned char TAG_SEQUENCE = 0x30;
constexpr unsigned char TAG_VERSION = 0xA0;
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
    Span content;
};

/*! Takes the first element off \a span; nothing when it does not lie wholly within. */
std::optional<Element> take(Span* span)
{
    Bytes cursor = span->begin;
    const auto isLeft = [&cursor, span](std::size_t count) {
        return std::size_t(span->end - cursor) >= count;
    };
    if (!isLeft(2))
        return std::nullopt;
    Element element;
    element.tag = *cursor++;
    if ((element.tag & LONG_TAG) == LONG_TAG) {
        while (isLeft(2) && *cursor & MORE)
            ++cursor;
        ++cursor;
    }
    if (!isLeft(1))
        return std::nullopt;
    std::size_t length = *cursor++;
    if (length & MORE) {
        const std::size_t octets = length & ~std::size_t(MORE);
        if (octets == 0 || octets > sizeof(quint32) || !isLeft(octets))
            return std::nullopt;
        length = 0;
        for (std::size_t i = 0; i < octets; ++i)
            length = length << 8 | *cursor++;
    }
    if (!isLeft(length))
        return std::nullopt;
    element.content = {cursor, cursor + length};
    span->begin = cursor + length;
    return element;
}

//! Takes an element that must have \a tag.
std::optional<Span> take(Span* span, unsigned char tag)
{
    const std::optional<Element> element = take(span);
    return element && element->tag == tag ? std::optional<Span>(element->content) : std::nullopt;
}

//! What may have elements inside: a value that is made of some, and octets that often are.
bool isNested(unsigned char tag)
{
    return tag & CONSTRUCTED || tag == TAG_OCTET_STRING || tag == TAG_BIT_STRING;
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
            count += isText ? 1 : level.rest.size() / 2;
            levels.pop_back();
            continue;
        }
        ++count;
        if (!isNested(element->tag))
            continue;
        if (levels.size() == MAX_DEPTH)
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

void describeKey(Span information, CertificateOutline* outline)
{
    std::optional<Span> algorithm = take(&information, TAG_SEQUENCE);
    const std::optional<Span> key = take(&information, TAG_BIT_STRING);
    if (!algorithm || !key)
        return;
    const std::optional<Span> object = take(&*algorithm, TAG_OBJECT);
    if (!object
        || !std::equal(object->begin, object->end, OBJECT_CURVE_KEY.begin(),
                       OBJECT_CURVE_KEY.end())) {
        return;
    }
    outline->hasCurveKey = true;
    outline->hasCurveParameters = take(&*algorithm, TAG_SEQUENCE).has_value();
    // Behind the number of unused bits: 4 is a whole point, 2 and 3 are half of one.
    constexpr std::size_t FORM = 1;
    outline->hasCompressedPoint = key->size() > FORM && key->begin[FORM] != 4;
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
    describeKey(*information, &outline);
    return outline;
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

// SPDX-License-Identifier: BSD-3-Clause

//! One-line names. The first line of an input holds the separators to write with.

#include "fuzz/Harness.h"
#include "fuzz/NameModel.h"

#include <Ferrule/SslCertificate.h>

#include <algorithm>

namespace {

using Attributes = QMultiMap<QString, QString>;

struct Certificate : vela::SslCertificate
{
    using SslCertificate::concatAttributes;
    using SslCertificate::parseAttributes;
};

//! Without the order, and without the attribute that has no text.
std::vector<fuzz::NameModel::Attribute> comparable(const fuzz::NameModel& model)
{
    std::vector<fuzz::NameModel::Attribute> attributes = model.attributes();
    const fuzz::NameModel::Attribute nothing;
    attributes.erase(std::remove(attributes.begin(), attributes.end(), nothing), attributes.end());
    std::sort(attributes.begin(), attributes.end());
    return attributes;
}

void checkReadBack(const Attributes& attributes, const fuzz::NameModel& model)
{
    const QString text = Certificate::concatAttributes(attributes, QString());
    Attributes readBack;
    Certificate::parseAttributes(text, readBack);
    fuzz::NameModel readBackModel;
    readBackModel.parse(text.toStdU16String());
    FUZZ_CHECK(readBackModel.equals(readBack));
    FUZZ_CHECK(comparable(readBackModel) == comparable(model));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QString input =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<int>(size));
    const QString separators = input.section(QLatin1Char('\n'), 0, 0);
    const QString text = input.section(QLatin1Char('\n'), 1);

    fuzz::NameModel model;
    Attributes attributes;
    // The second round adds to what the first has left.
    for (int round = 0; round < 2; ++round) {
        model.parse(text.toStdU16String());
        Certificate::parseAttributes(text, attributes);
        FUZZ_CHECK(model.equals(attributes));
        FUZZ_CHECK(Certificate::concatAttributes(attributes, separators).toStdU16String()
                   == model.concat(separators.toStdU16String()));
        checkReadBack(attributes, model);
    }
    return 0;
}

// SPDX-License-Identifier: BSD-3-Clause

/*
    Cipher descriptions. The first line of an input is the separator to write with; the rest is a
    description, and also, line by line, a list of words.
*/

#include "fuzz/Harness.h"

#include <Ferrule/SslCertificate.h>

#include <algorithm>
#include <string>
#include <vector>

using vela::SslCertificate;

namespace {

using Words = std::vector<std::u16string>;

constexpr std::size_t NOT_FOUND = std::u16string::npos;

//! The characters that Unicode 13 calls white space.
constexpr char16_t WHITE_SPACE[] =
    u"\t\n\v\f\r \u0085\u00A0\u1680\u2000\u2001\u2002\u2003\u2004\u2005"
    u"\u2006\u2007\u2008\u2009\u200A\u2028\u2029\u202F\u205F\u3000";

struct Model
{
    explicit Model(const Words& words);

    std::u16string describe(const std::u16string& separator) const;

    std::u16string name;
    std::u16string protocol;
    std::u16string keyExchange;
    std::u16string authentication;
    std::u16string encryption;
    std::u16string mac;
    bool exportable;
    int bits = 0;
};

std::u16string trimmed(const std::u16string& text)
{
    const std::size_t first = text.find_first_not_of(WHITE_SPACE);
    if (first == NOT_FOUND)
        return {};
    return text.substr(first, text.find_last_not_of(WHITE_SPACE) - first + 1);
}

std::u16string plainField(const Words& words, std::size_t position)
{
    return position < words.size() ? trimmed(words[position]) : std::u16string();
}

std::u16string labelledField(const Words& words, std::size_t position, const std::u16string& label)
{
    if (position >= words.size())
        return {};
    const std::u16string& word = words[position];
    const std::size_t start = word.find(label);
    const std::size_t equals =
        start == NOT_FOUND ? NOT_FOUND : word.find(u'=', start + label.size());
    return trimmed(equals == NOT_FOUND ? word : word.substr(equals + 1));
}

bool isExport(std::u16string word)
{
    for (char16_t& character : word)
        character += character >= u'A' && character <= u'Z' ? u'a' - u'A' : 0;
    return word == u"export";
}

Model::Model(const Words& words)
    : name(plainField(words, 0))
    , protocol(plainField(words, 1))
    , keyExchange(labelledField(words, 2, u"Kx"))
    , authentication(labelledField(words, 3, u"Au"))
    , encryption(labelledField(words, 4, u"Enc"))
    , mac(labelledField(words, 5, u"Mac"))
    , exportable(isExport(plainField(words, 6)))
{
}

std::u16string Model::describe(const std::u16string& separator) const
{
    std::vector<std::u16string> items;
    const auto append = [&items](const char16_t* label, const std::u16string& value) {
        if (!value.empty())
            items.push_back(label + value);
    };
    append(u"Cipher=", name);
    append(u"", bits > 0 ? QString::number(bits).toStdU16String() + u" bit" : u"");
    append(u"Protocol=", protocol);
    append(u"Key Exchange=", keyExchange);
    append(u"Authentication=", authentication);
    append(u"Encryption=", encryption);
    append(u"MAC=", mac);
    append(u"", exportable ? u"export" : u"");

    std::u16string text;
    for (std::size_t i = 0; i < items.size(); ++i)
        text += (i > 0 ? separator : std::u16string()) + items[i];
    return text;
}

Words splitAt(char16_t separator, const std::u16string& text)
{
    Words words(1);
    for (char16_t character : text) {
        if (character == separator)
            words.emplace_back();
        else
            words.back() += character;
    }
    return words;
}

void check(const SslCertificate& certificate, const Model& model, const QString& separator)
{
    const vela::CertCipher& cipher = certificate.cipher();
    FUZZ_CHECK(cipher.name.toStdU16String() == model.name);
    FUZZ_CHECK(cipher.protocol.toStdU16String() == model.protocol);
    FUZZ_CHECK(cipher.keyExchange.toStdU16String() == model.keyExchange);
    FUZZ_CHECK(cipher.authentication.toStdU16String() == model.authentication);
    FUZZ_CHECK(cipher.encryption.toStdU16String() == model.encryption);
    FUZZ_CHECK(cipher.mac.toStdU16String() == model.mac);
    FUZZ_CHECK(cipher.exportable == model.exportable);
    FUZZ_CHECK(cipher.bits == model.bits);
    FUZZ_CHECK(cipher.authenticationBits == 0);
    FUZZ_CHECK(certificate.cipherDescription(separator).toStdU16String()
               == model.describe(separator.toStdU16String()));
}

Words withoutEmpty(Words words)
{
    words.erase(std::remove(words.begin(), words.end(), std::u16string()), words.end());
    return words;
}

QStringList toQt(const Words& words)
{
    QStringList list;
    for (const std::u16string& word : words)
        list.append(QString::fromStdU16String(word));
    return list;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QString input =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<int>(size));
    const QString separator = input.section(QLatin1Char('\n'), 0, 0);
    const QString text = input.section(QLatin1Char('\n'), 1);
    SslCertificate certificate;

    // What was there before must not shine through.
    certificate.setCipher(separator, 128, text);
    certificate.setCipherDescription(text);
    Model model(withoutEmpty(splitAt(u' ', text.toStdU16String())));
    check(certificate, model, separator);

    const Words lines = splitAt(u'\n', text.toStdU16String());
    certificate.setCipherDescription(toQt(lines));
    model = Model(lines);
    check(certificate, model, separator);

    certificate.setCipher(separator, static_cast<int>(size), text);
    model.name = separator.toStdU16String();
    model.bits = static_cast<int>(size);
    model.protocol = text.toStdU16String();
    check(certificate, model, separator);
    return 0;
}

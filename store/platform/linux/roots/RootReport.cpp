// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/roots/RootReport.h"

#include "support/LogFailure.h"

#include <QtCore/QFile>
#include <QtCore/QStringList>

#include <algorithm>
#include <system_error>

namespace vela {

namespace {

//! File names may hold anything, and the log is made of lines.
QString onOneLine(const std::string& text)
{
    QString line = QFile::decodeName(text.c_str());
    std::replace_if(
        line.begin(), line.end(), [](QChar character) { return !character.isPrint(); },
        QLatin1Char('?'));
    return line;
}

} // namespace

void RootReport::add(const std::string& path, const std::string& reason)
{
    m_entries.push_back(path + ": " + reason);
}

void RootReport::addError(const std::string& path, int error)
{
    add(path, std::generic_category().message(error));
}

void RootReport::addEmpty(const std::string& path)
{
    add(path, "no certificates");
}

void RootReport::addDamage(const std::string& path, int certificates)
{
    add(path, std::to_string(certificates)
                  + (certificates == 1 ? " damaged certificate" : " damaged certificates"));
}

void RootReport::log() const
{
    if (m_entries.empty())
        return;
    const std::size_t named = std::min(m_entries.size(), MAX_NAMED);
    QStringList parts;
    for (std::size_t i = 0; i < named; ++i)
        parts.append(onOneLine(m_entries[i]));
    if (named < m_entries.size())
        parts.append(QString::fromLatin1("%1 more").arg(m_entries.size() - named));
    logFailure("vela::RootCache::current",
               L"Trusted roots passed over: " + parts.join(QLatin1String("; ")).toStdWString());
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "socket/FileVersion.h"

#include "support/EngineFileName.h"

#include <QtCore/QFileInfo>

namespace vela {

namespace {

constexpr qint64 SETTLED_AFTER_MILLISECONDS = 2500;

} // namespace

FileVersion FileVersion::of(const QByteArray& engineName)
{
    FileVersion version;
    const QFileInfo info(fileOfEngineName(engineName));
    if (info.exists()) {
        version.m_modified = info.lastModified().toMSecsSinceEpoch();
        version.m_size = info.size();
    }
    return version;
}

bool FileVersion::isSettled(const QDateTime& now) const
{
    return m_size >= 0 && now.toMSecsSinceEpoch() - m_modified >= SETTLED_AFTER_MILLISECONDS;
}

} // namespace vela

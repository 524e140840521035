// SPDX-License-Identifier: BSD-3-Clause
#include "support/TextConversion.h"

#include <QtCore/QString>

namespace vela {

std::wstring tconvert(const char* text)
{
    return QString::fromUtf8(text).toStdWString();
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TEXTCONVERSION_H
#define FERRULE_TEXTCONVERSION_H

#include <string>

namespace vela {

//! Returns the UTF-8 \a text, which may be null, as wide text.
std::wstring tconvert(const char* text);

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/TrustPlatform.h"

#include <atomic>

namespace vela {

namespace {

std::atomic<TrustPlatform*> replacement{nullptr};

} // namespace

TrustPlatform& TrustPlatform::current()
{
    TrustPlatform* const platform = replacement.load();
    return platform ? *platform : systemTrustPlatform();
}

TrustPlatform* TrustPlatform::setForTesting(TrustPlatform* platform)
{
    return replacement.exchange(platform);
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "EchoingProxy.h"

#include "moc_EchoingProxy.cpp"

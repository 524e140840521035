// SPDX-License-Identifier: BSD-3-Clause
#include "EmissionLog.h"

#include "moc_EmissionLog.cpp"

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PASSPHRASE_H
#define FERRULE_PASSPHRASE_H

namespace vela {

/*!
    Answers OpenSSL's question for a pass phrase with a failure. Without such an answer OpenSSL asks
    whoever sits at the terminal, and waits.
*/
int refusePassPhrase(char* buffer, int size, int writing, void* data);

} // namespace vela

#endif

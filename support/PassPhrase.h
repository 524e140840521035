// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PASSPHRASE_H
#define FERRULE_PASSPHRASE_H

namespace vela {

/*!
    The pass phrase callback of everything that the library reads in PEM form: refuses, always.
    Without a callback OpenSSL asks the person at the terminal, which stops the program, and takes
    the answer from its standard input when there is no terminal. What is encrypted fails to load
    instead, with OpenSSL's "bad password read".
*/
int refusePassPhrase(char* buffer, int size, int writing, void* data);

} // namespace vela

#endif

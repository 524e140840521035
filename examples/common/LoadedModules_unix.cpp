// SPDX-License-Identifier: BSD-3-Clause
#include "common/LoadedModules.h"

#include <QtCore/QFile>

#include <dlfcn.h>

namespace modules {

QString pathOf(Address address)
{
    Dl_info info;
    if (dladdr(reinterpret_cast<void*>(address), &info) == 0)
        return QString();
    return QFile::decodeName(info.dli_fname);
}

Address engineFunction(const QString& path, const char* name)
{
    // Loaded already, and not to stay for longer on our account.
    void* library = dlopen(QFile::encodeName(path).constData(), RTLD_LAZY | RTLD_NOLOAD);
    if (!library)
        return nullptr;
    void* function = dlsym(library, name); // Looks in what the library is linked to, too.
    dlclose(library);
    return reinterpret_cast<Address>(function);
}

} // namespace modules

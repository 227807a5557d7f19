#pragma once

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitchApi/FileDescriptor.h"

namespace NerioSwitchApi {

/**
 * The only holder of a lock file, among all processes and within this one. The file is made if it is
 * missing and stays behind; the lock goes with its holder, however that ends. A process that is forked off
 * meanwhile shares it, one that is executed does not.
 */
class BELMO_EXPORT FileLock {
public:
    /** Does not wait: a lock that is held throws `Belmo::ResourceException`, which names the holder. */
    explicit FileLock(Belmo::String const& path);

private:
    FileDescriptor file_;
};

}  // namespace NerioSwitchApi

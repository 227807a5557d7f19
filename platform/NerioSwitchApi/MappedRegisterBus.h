#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <tsl/robin_map.h>

#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "NerioSwitchApi/FileDescriptor.h"
#include "NerioSwitchApi/RegisterBus.h"
#include "NerioSwitchApi/RegisterMapFile.h"

namespace boost::interprocess {
class mapped_region;
}

namespace NerioSwitchApi {

/**
 * The registers of a chip that the system shows as a file to map, such as the resource of a PCI device, or an
 * ordinary file in its place. Each access is one load or store of 32 bits, in the order of the calls and in
 * the byte order of this machine.
 *
 * One bus at a time holds a file. Mapped memory has no way to refuse an access: a file that others cut, or a
 * device that goes away, ends the process with SIGBUS.
 */
class BELMO_EXPORT MappedRegisterBus final : public RegisterBus {
public:
    /**
     * Maps the registers of `map`, whose offsets count from `base`, a multiple of 4, in the file. Throws
     * `Belmo::ResourceException` for a file that is missing, not to be written, no file to map or in use, or
     * a base that makes no sense, and `RegisterMapException` for a register beyond its end. A device node
     * does not tell its size; the system refuses to map what it does not have.
     */
    MappedRegisterBus(Belmo::String const& file, RegisterMapFile map, U64 base = 0);
    ~MappedRegisterBus() override;

    RegisterHandle address(std::string_view path) override;
    Belmo::String path(RegisterHandle handle) const override;
    U32 read(RegisterHandle handle) override;
    void write(RegisterHandle handle, U32 word) override;

    RegisterMapFile const& map() const { return map_; }

private:
    RegisterMapFile map_;
    FileDescriptor file_;  // holds the lock
    std::unique_ptr<boost::interprocess::mapped_region> region_;
    U32 volatile* words_ = nullptr;
    std::size_t size_ = 0;  // in words
    /** Word numbers by path, whose texts the map keeps. */
    tsl::robin_map<std::string_view, U32> numbers_;
};

}  // namespace NerioSwitchApi

#include "NerioSwitchApi/MappedRegion.h"

#include <boost/interprocess/exceptions.hpp>

namespace NerioSwitchApi {

namespace {

namespace ipc = boost::interprocess;

/** An open file in the form in which a region maps it. */
struct Mappable {
    int descriptor;

    ipc::mapping_handle_t get_mapping_handle() const {
        return ipc::ipcdetail::mapping_handle_from_file_handle(descriptor);
    }
};

}  // namespace

std::unique_ptr<ipc::mapped_region> mappedRegion(int descriptor, Belmo::String const& path, U64 offset,
                                                 std::size_t size) {
    if (size == 0) return nullptr;
    try {
        return std::make_unique<ipc::mapped_region>(Mappable{descriptor}, ipc::read_write,
                                                    static_cast<ipc::offset_t>(offset), size);
    } catch (ipc::interprocess_exception const& refusal) {
        throw systemFailure("cannot map", path, refusal.get_native_error());
    }
}

}  // namespace NerioSwitchApi

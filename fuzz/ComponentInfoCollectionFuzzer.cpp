// The server monitor's answer, read from hostile bytes. Whatever the reader
// accepts must serialise again, and the serialised form must read back into
// the same bytes.
#include "ComponentInfoCollection.h"
#include "PException.h"
#include "PrimitiveTypeArray.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

using Collection = OrbLib::OrbUi::ComponentInfoCollection<OrbLib::OrbUi::PrimitiveTypeArray<long>>;

std::vector<unsigned char> serialise(const Collection& collection)
{
    std::vector<unsigned char> bytes(collection.getSerializedSize());
    if (collection.getSerialized(bytes.data(), static_cast<unsigned int>(bytes.size())) != bytes.size()) {
        std::abort();
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Collection collection;
    try {
        collection.setSerialized(data, static_cast<unsigned int>(size));
    } catch (const PException&) {
        // Records read before the failure stay; they serialise like any others.
    }
    for (std::size_t index = 0; index < collection.size(); ++index) {
        const auto* record = collection.getCompInfo(static_cast<unsigned short>(index));
        for (std::size_t value = 0; value < record->size(); ++value) {
            static_cast<void>(record->get(value));
        }
    }
    try {
        static_cast<void>(collection.getCompInfo(static_cast<unsigned short>(collection.size())));
        std::abort();
    } catch (const PException&) {
    }

    const auto first = serialise(collection);
    Collection again;
    if (!again.setSerialized(first.data(), static_cast<unsigned int>(first.size())) ||
        again.size() != collection.size()) {
        std::abort();
    }
    if (serialise(again) != first) {
        std::abort();
    }
    return 0;
}

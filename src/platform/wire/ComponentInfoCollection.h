#pragma once

#include "ByteReader.h"
#include "ByteWriter.h"
#include "PException.h"
#include "PlatformError.h"
#include "SerializableObject.h"

#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace OrbLib::OrbUi {

// The server monitor's answer: a list of records, serialised as a 2-byte
// big-endian record count followed by each record as a 2-byte length and the
// record's own serialised bytes.
template <typename Element>
class ComponentInfoCollection : public SerializableObject {
public:
    unsigned int getSerialized(unsigned char* buffer, unsigned int size) const override
    {
        const unsigned int needed = getSerializedSize();
        if (needed > size) {
            throw differentSize("ComponentInfoCollection::getSerialized");
        }
        partmode::ByteWriter writer(std::span<std::uint8_t>(buffer, needed));
        writer.u16(static_cast<std::uint16_t>(elements_.size()));
        for (const auto& element : elements_) {
            const unsigned int length = element->getSerializedSize();
            writer.u16(static_cast<std::uint16_t>(length));
            const auto area = writer.area(length);
            element->getSerialized(area.data(), length);
        }
        return static_cast<unsigned int>(writer.position());
    }

    [[nodiscard]] unsigned int getSerializedSize() const override
    {
        unsigned int size = 2;
        for (const auto& element : elements_) {
            size += element->getSerializedSize() + 2;
        }
        return size;
    }

    // Reads the records; throws "Different Buffer Size" when a record runs past
    // the end of `data` or bytes are left over after the last record. Records
    // read before a throw stay in the collection.
    bool setSerialized(const unsigned char* data, unsigned int size) override
    {
        partmode::ByteReader reader(std::span<const std::uint8_t>(data, size));
        try {
            const unsigned int count = reader.u16();
            if (count == 0) {
                return true;
            }
            for (unsigned int i = 0; i < count; ++i) {
                const unsigned int length = reader.u16();
                if (length > reader.remaining()) {
                    throw differentSize("ComponentInfoCollection::setSerialized");
                }
                auto element = std::make_unique<Element>();
                const auto bytes = reader.bytes(length);
                element->setSerialized(bytes.data(), length);
                elements_.push_back(std::move(element));
            }
        } catch (const std::out_of_range&) {
            throw differentSize("ComponentInfoCollection::setSerialized");
        }
        if (reader.remaining() != 0) {
            throw differentSize("ComponentInfoCollection::setSerialized");
        }
        return true;
    }

    // The record at `index`; throws "Out of range" past the last one.
    [[nodiscard]] Element* getCompInfo(unsigned short index) const
    {
        if (index >= elements_.size()) {
            throw PException(1, 0x50, 0x0A00, 1, partmode::error::kDetailCollection, 20010,
                             {std::string("ComponentInfoCollection::getCompInfo"), std::string("Out of range")});
        }
        return elements_[index].get();
    }

    void add(std::unique_ptr<Element> element) { elements_.push_back(std::move(element)); }
    [[nodiscard]] std::size_t size() const { return elements_.size(); }

private:
    static PException differentSize(const char* where)
    {
        return PException(1, 0x50, 0x0A00, 1, partmode::error::kDetailCollection, 20010,
                          {std::string(where), std::string("Different Buffer Size")});
    }

    std::vector<std::unique_ptr<Element>> elements_;
};

} // namespace OrbLib::OrbUi

#pragma once

namespace OrbLib {

// An object that the board's services exchange in serialised form.
class SerializableObject {
public:
    SerializableObject() = default;
    SerializableObject(const SerializableObject&) = delete;
    SerializableObject& operator=(const SerializableObject&) = delete;
    virtual ~SerializableObject() = default;

    // Writes the object into `buffer`; returns the number of bytes written.
    virtual unsigned int getSerialized(unsigned char* buffer, unsigned int size) const = 0;
    [[nodiscard]] virtual unsigned int getSerializedSize() const = 0;
    virtual bool setSerialized(const unsigned char* data, unsigned int size) = 0;
};

} // namespace OrbLib

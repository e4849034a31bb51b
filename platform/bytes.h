// A read-only view of untrusted bytes (sectors, descriptors, directory
// entries read from an image) and the little/big-endian field readers over
// it. Every read is checked against the view, so a decoder that trusts a
// length field from the image can at worst read zeros, never outside the
// buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace gp {

class ByteView {
 public:
  constexpr ByteView() = default;
  constexpr ByteView(const uint8_t *data, size_t size)
      : data_(data), size_(size) {}
  explicit ByteView(std::string_view s)
      : data_(reinterpret_cast<const uint8_t *>(s.data())), size_(s.size()) {}

  const uint8_t *data() const { return data_; }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // Whether [offset, offset + length) lies inside the view; written so
  // that offsets near SIZE_MAX cannot wrap around.
  bool has(size_t offset, size_t length) const {
    return offset <= size_ && length <= size_ - offset;
  }

  // Field readers: 0 unless the whole field lies inside the view.
  uint8_t u8(size_t offset) const { return has(offset, 1) ? data_[offset] : 0; }
  uint16_t le16(size_t offset) const {
    return has(offset, 2) ? static_cast<uint16_t>(le(offset, 2)) : 0;
  }
  uint32_t le32(size_t offset) const {
    return has(offset, 4) ? static_cast<uint32_t>(le(offset, 4)) : 0;
  }
  uint64_t le64(size_t offset) const {
    return has(offset, 8) ? le(offset, 8) : 0;
  }
  uint16_t be16(size_t offset) const {
    return has(offset, 2) ? static_cast<uint16_t>(be(offset, 2)) : 0;
  }
  uint32_t be32(size_t offset) const {
    return has(offset, 4) ? static_cast<uint32_t>(be(offset, 4)) : 0;
  }

  // [offset, offset + length), or an empty view unless all of it is inside.
  ByteView sub(size_t offset, size_t length) const {
    return has(offset, length) ? ByteView(data_ + offset, length) : ByteView();
  }
  // The part of [offset, offset + length) that lies inside the view.
  ByteView clip(size_t offset, size_t length) const {
    if (offset >= size_) {
      return {};
    }
    return {data_ + offset, length < size_ - offset ? length : size_ - offset};
  }
  // The bytes as text; empty unless all of them are inside.
  std::string_view text(size_t offset, size_t length) const {
    if (!has(offset, length)) {
      return {};
    }
    return {reinterpret_cast<const char *>(data_ + offset), length};
  }

 private:
  uint64_t le(size_t offset, size_t width) const {
    uint64_t v = 0;
    for (size_t i = width; i-- > 0;) {
      v = v << 8 | data_[offset + i];
    }
    return v;
  }
  uint64_t be(size_t offset, size_t width) const {
    uint64_t v = 0;
    for (size_t i = 0; i < width; ++i) {
      v = v << 8 | data_[offset + i];
    }
    return v;
  }

  const uint8_t *data_ = nullptr;
  size_t size_ = 0;
};

// Little-endian field writers for structures this system builds itself.
inline void put16(uint8_t *p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}
inline void put32(uint8_t *p, uint32_t v) {
  put16(p, v);
  put16(p + 2, v >> 16);
}

}  // namespace gp

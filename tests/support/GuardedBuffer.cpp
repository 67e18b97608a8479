#include "support/GuardedBuffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace quiv::test {
namespace {

constexpr uint8_t kPattern = 0xA5;

size_t PageSize() {
  return static_cast<size_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace

GuardedBuffer::GuardedBuffer(size_t size) : m_size(size) {
  const size_t page = PageSize();
  const size_t usable = (size + page - 1) / page * page + page;  // at least one page of prefix
  m_mapSize = usable + page;
  void* map =
      ::mmap(nullptr, m_mapSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (map == MAP_FAILED) throw std::runtime_error("mmap failed");
  m_map = static_cast<uint8_t*>(map);
  if (::mprotect(m_map + usable, page, PROT_NONE) != 0) {
    ::munmap(m_map, m_mapSize);
    throw std::runtime_error("mprotect failed");
  }
  std::memset(m_map, kPattern, usable);
  m_data = m_map + usable - size;
}

GuardedBuffer::GuardedBuffer(std::span<const uint8_t> content) : GuardedBuffer(content.size()) {
  std::copy(content.begin(), content.end(), m_data);
}

GuardedBuffer::~GuardedBuffer() {
  ::munmap(m_map, m_mapSize);
}

void GuardedBuffer::Fill(uint8_t value) {
  std::memset(m_data, value, m_size);
}

bool GuardedBuffer::PrefixIntact() const {
  return std::all_of(m_map, m_data, [](uint8_t b) { return b == kPattern; });
}

}  // namespace quiv::test

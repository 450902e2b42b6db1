#include <dtm/support/IdRemap.h>

#include <limits>
#include <stdexcept>

namespace kor {

CPtr64Mapper::CPtr64Mapper() = default;

CPtr64Mapper::~CPtr64Mapper() = default;

void CPtr64Mapper::SetId(const void* object, std::int32_t id) {
    if (id == 0) throw std::invalid_argument("CPtr64Mapper: 0 is the identifier of no object");
    m_ids[static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(object))] = id;
    // Identifiers handed out later must not collide with the ones the host chose.
    if (id >= m_nextId) m_nextId = static_cast<std::int64_t>(id) + 1;
}

std::int32_t CPtr64Mapper::GetPointer32(std::int64_t pointer) {
    if (pointer == 0) return 0;
    const auto found = m_ids.find(pointer);
    if (found != m_ids.end()) return found->second;
    if (m_nextId > std::numeric_limits<std::int32_t>::max())
        throw std::overflow_error("CPtr64Mapper: no 32-bit identifier is left");
    const auto id = static_cast<std::int32_t>(m_nextId++);
    m_ids.emplace(pointer, id);
    return id;
}

CRefObjIdRemapper::CRefObjIdRemapper() = default;

CRefObjIdRemapper::~CRefObjIdRemapper() = default;

void CRefObjIdRemapper::AddId(std::int32_t id, IRefCounter* object) {
    m_objects[id] = object;
}

IRefCounter* CRefObjIdRemapper::FindId(IRefCounter* storedId) const {
    // Sections store a 32-bit identifier where the object's pointer was; it comes back here
    // carried in a pointer-sized value.
    return FindId(static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(storedId)));
}

IRefCounter* CRefObjIdRemapper::FindId(std::int32_t id) const {
    if (id == 0) return nullptr;
    const auto found = m_objects.find(id);
    return found == m_objects.end() ? nullptr : found->second;
}

}  // namespace kor

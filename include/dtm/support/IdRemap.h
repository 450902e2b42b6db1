#pragma once

/// @file
/// Identifier tables that turn pointers between objects into document identifiers and back.

#include <dtm/support/Export.h>
#include <dtm/support/RefCounter.h>

#include <cstdint>
#include <unordered_map>

namespace kor {

/// Writing side: numbers the live objects of a document. The host registers each object under
/// the identifier with which it stores that object; GetPointer32 answers that identifier.
class DTM_API CPtr64Mapper {
public:
    CPtr64Mapper();
    virtual ~CPtr64Mapper();
    /// Stores @p object under @p id, replacing an earlier id of the same object. Throws
    /// std::invalid_argument for id 0, which stands for "no object" in a document.
    void SetId(const void* object, std::int32_t id);
    /// The identifier of the object whose address is @p pointer. An object never registered gets
    /// the next free identifier, remembered for later calls, so that one document never gives
    /// two objects the same number. The null pointer is always 0. Throws std::overflow_error
    /// when every positive 32-bit identifier is taken.
    std::int32_t GetPointer32(std::int64_t pointer);

private:
    std::unordered_map<std::int64_t, std::int32_t> m_ids;
    std::int64_t m_nextId = 1;  // 64 bits, so that the last 32-bit identifier can be handed out
};

/// Reading side: maps identifiers read from a document back to live objects.
class DTM_API CRefObjIdRemapper {
public:
    CRefObjIdRemapper();
    virtual ~CRefObjIdRemapper();
    /// Records that the document's identifier @p id names @p object (borrowed: the caller keeps
    /// it alive while the remapper is used).
    void AddId(std::int32_t id, IRefCounter* object);
    /// The object under the identifier that a section stored in place of a pointer, or null
    /// when no object of the document has it (the caller treats that as a broken link).
    IRefCounter* FindId(IRefCounter* storedId) const;
    /// The same lookup, from the identifier as an integer.
    IRefCounter* FindId(std::int32_t id) const;

private:
    std::unordered_map<std::int32_t, IRefCounter*> m_objects;
};

}  // namespace kor

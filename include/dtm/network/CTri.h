#pragma once

/// @file
/// One triangle of a network, and its memento.

#include <dtm/support/Events.h>
#include <dtm/support/Export.h>
#include <dtm/support/RefCounter.h>

#include <cstddef>
#include <cstdint>

class CTris;

/// A triangle: three indices into its network's vertex array and a CAD colour index (256 means
/// by layer). Reference-counted; the network holds one reference on each of its triangles.
/// A triangle has no pointer to its network: the operations that notify take it as @p owner.
class DTM_API CTri : public kor::IRefCounter {
public:
    /// Vertices 0, 0, 0 and colour 256 (by layer).
    CTri();
    /// Note the order: the colour comes first.
    CTri(int colour, int i0, int i1, int i2);

    /// A new memento of the colour and the three indices; the caller holds its reference.
    virtual kor::IMemento* CreateMemento(CTris* owner) const;
    /// True when the colour or any index differs from @p memento (a CTriMemento).
    virtual bool HasChanged(const kor::IMemento* memento) const;
    /// Puts @p memento's state back, notifying its owner's change context first.
    void SetMemento(kor::IMemento* memento) { OnSetMemento(memento); }

    /// Vertex index @p k (0..2); no notification.
    int GetVerIndex(int k) const { return m_vertices[k]; }
    /// Stores vertex index @p k (0..2) without notification. The networks' search indexes learn
    /// of it all the same (a triangle does not know its network, so every index is rechecked).
    void SetVerIndex(int k, int v);
    /// Notifies @p owner's change context (vertices modified), then stores the three indices.
    void SetVerIndexes(CTris* owner, int i0, int i1, int i2);
    int GetColor() const noexcept { return m_colour; }
    /// Notifies @p owner's change context (colour modified), then stores @p colour.
    void SetColor(CTris* owner, int colour);
    /// Swaps vertices 1 and 2 when the triangle turns clockwise in plan, so that afterwards
    /// SIDE of its vertices is >= 0. Sends no notification.
    void ClockwiseOrder(CTris* owner);

    // Memory -------------------------------------------------------------------------------

    /// Triangles come from a slab pool: a network holds millions of them, and the general heap
    /// would add a chunk header to each and scatter them. A class derived from CTri with a size
    /// of its own is served by the global operator new.
    static void* operator new(std::size_t size);
    /// Gives the memory of a triangle back to where operator new took it from.
    static void operator delete(void* memory, std::size_t size) noexcept;

protected:
    ~CTri() override;
    /// Restores the colour (notifying a colour change first) when it differs, then the indices
    /// (notifying a vertex change first) when any differs.
    virtual void OnSetMemento(kor::IMemento* memento);

private:
    std::int32_t m_vertices[3];
    std::int32_t m_colour;
};

/// A triangle's state: its network, its colour and its three vertex indices.
class DTM_API CTriMemento : public kor::IMemento {
public:
    CTriMemento(CTris* owner, int colour, int i0, int i1, int i2)
        : m_owner(owner), m_colour(colour), m_vertices{i0, i1, i2} {}
    std::size_t GetSize() const override { return sizeof(*this); }
    CTris* GetOwner() const noexcept { return m_owner; }
    int GetColor() const noexcept { return m_colour; }
    int GetVerIndex(int k) const { return m_vertices[k]; }

protected:
    ~CTriMemento() override;

private:
    CTris* m_owner;
    std::int32_t m_colour;
    std::int32_t m_vertices[3];
};

// The framework's own containers: an intrusive doubly linked list, a
// power-of-two array addressed through a wrap-around index, a chained hash
// table built from the two, and a few small records. None of them locks: the
// caller does.
#ifndef VELD_CONTAINERS_H
#define VELD_CONTAINERS_H

#include <new>
#include <utility>

#include "veld_types.h"

// ---------------------------------------------------------------------------
// Lists

class VELDBasicListItem {
public:
    VELDBasicListItem() : predecessor(nullptr), successor(nullptr) {}
    virtual ~VELDBasicListItem() {}

    VELDBasicListItem* Prev() const { return predecessor; }
    VELDBasicListItem* Next() const { return successor; }

    VELDBasicListItem* predecessor;
    VELDBasicListItem* successor;
};

template <class T>
class VELDListItem : public VELDBasicListItem {
public:
    VELDListItem() : value() {}
    explicit VELDListItem(const T& v) : value(v) {}

    T value;
};

class VELDBasicList;

// Walks a list; a null `ptr` is the end of the walk.
class VELDListIterator {
public:
    VELDListIterator() : ptr(nullptr) {}
    VELDListIterator(VELDBasicListItem* item) : ptr(item) {}
    explicit VELDListIterator(const VELDBasicList& list);

    operator VELDBasicListItem*() const { return ptr; }
    VELDListIterator& operator=(VELDBasicListItem* item) { ptr = item; return *this; }
    bool operator==(const VELDBasicListItem* item) const { return ptr == item; }
    bool operator!=(const VELDBasicListItem* item) const { return ptr != item; }

    VELDListIterator& operator++() { if (ptr) ptr = ptr->successor; return *this; }
    VELDListIterator operator++(int) { VELDListIterator old(*this); ++*this; return old; }
    VELDListIterator& operator--() { if (ptr) ptr = ptr->predecessor; return *this; }
    VELDListIterator operator--(int) { VELDListIterator old(*this); --*this; return old; }

    VELDBasicListItem* Predecessor() const { return ptr ? ptr->predecessor : nullptr; }
    VELDBasicListItem* Successor() const { return ptr ? ptr->successor : nullptr; }

    VELDBasicListItem* ptr;
};

// The links and the count. Items are linked and unlinked here; whether a
// list owns its items is the business of the derived class.
class VELDBasicList {
public:
    VELDBasicList() : first_item(nullptr), last_item(nullptr), l(0) {}
    virtual ~VELDBasicList() {}

    bool Empty() const { return l == 0; }
    int Length() const { return l; }
    int Size() const { return l; }
    int Dim() const { return l; }

    VELDBasicListItem* First() const { return first_item; }
    VELDBasicListItem* Iterator() const { return first_item; }
    VELDBasicListItem* Begin() const { return first_item; }
    VELDBasicListItem* Last() const { return last_item; }
    VELDBasicListItem* End() const { return last_item; }

    VELDBasicListItem* Next(const VELDBasicListItem* it) const { return it ? it->successor : nullptr; }
    VELDBasicListItem* Previous(const VELDBasicListItem* it) const { return it ? it->predecessor : nullptr; }
    bool Finished(const VELDBasicListItem* it) const { return it == nullptr; }
    bool IsFirst(const VELDBasicListItem* it) const { return it != nullptr && it == first_item; }
    bool IsLast(const VELDBasicListItem* it) const { return it != nullptr && it == last_item; }

    // Linking of items that are not in any list.
    void AppendItem(VELDBasicListItem* item);
    void PrependItem(VELDBasicListItem* item);
    void InsertItemAfter(VELDBasicListItem* position, VELDBasicListItem* item);
    void InsertItemBefore(VELDBasicListItem* position, VELDBasicListItem* item);
    // Takes an item out of this list without destroying it.
    void UnlinkItem(VELDBasicListItem* item);
    // Moving an item of this list costs no allocation.
    void MoveToFirst(VELDBasicListItem* item);
    void MoveToLast(VELDBasicListItem* item);

protected:
    VELDBasicListItem* first_item;
    VELDBasicListItem* last_item;
    int l;
};

inline VELDListIterator::VELDListIterator(const VELDBasicList& list) : ptr(list.First()) {}

inline void VELDBasicList::AppendItem(VELDBasicListItem* item)
{
    item->successor = nullptr;
    item->predecessor = last_item;
    if (last_item)
        last_item->successor = item;
    else
        first_item = item;
    last_item = item;
    ++l;
}

inline void VELDBasicList::PrependItem(VELDBasicListItem* item)
{
    item->predecessor = nullptr;
    item->successor = first_item;
    if (first_item)
        first_item->predecessor = item;
    else
        last_item = item;
    first_item = item;
    ++l;
}

inline void VELDBasicList::InsertItemAfter(VELDBasicListItem* position, VELDBasicListItem* item)
{
    if (!position || position == last_item) return AppendItem(item);
    item->predecessor = position;
    item->successor = position->successor;
    position->successor->predecessor = item;
    position->successor = item;
    ++l;
}

inline void VELDBasicList::InsertItemBefore(VELDBasicListItem* position, VELDBasicListItem* item)
{
    if (!position || position == first_item) return PrependItem(item);
    item->successor = position;
    item->predecessor = position->predecessor;
    position->predecessor->successor = item;
    position->predecessor = item;
    ++l;
}

inline void VELDBasicList::UnlinkItem(VELDBasicListItem* item)
{
    if (item->predecessor)
        item->predecessor->successor = item->successor;
    else
        first_item = item->successor;
    if (item->successor)
        item->successor->predecessor = item->predecessor;
    else
        last_item = item->predecessor;
    item->predecessor = item->successor = nullptr;
    --l;
}

inline void VELDBasicList::MoveToFirst(VELDBasicListItem* item)
{
    if (item == first_item) return;
    UnlinkItem(item);
    PrependItem(item);
}

inline void VELDBasicList::MoveToLast(VELDBasicListItem* item)
{
    if (item == last_item) return;
    UnlinkItem(item);
    AppendItem(item);
}

// A list that owns its items: the destructor deletes every item, through the
// item's virtual destructor.
template <class T>
class VELDList : public VELDBasicList {
public:
    typedef VELDListItem<T> Item;

    VELDList() {}
    VELDList(const VELDList& other) : VELDBasicList() { CopyFrom(other); }
    VELDList& operator=(const VELDList& other)
    {
        if (this != &other) {
            Clear();
            CopyFrom(other);
        }
        return *this;
    }
    ~VELDList() override { Clear(); }

    static T& Value(VELDBasicListItem* item) { return static_cast<Item*>(item)->value; }
    T& operator[](const VELDListIterator& it) const { return Value(it.ptr); }

    Item* FirstItem() const { return static_cast<Item*>(first_item); }
    Item* LastItem() const { return static_cast<Item*>(last_item); }

    Item* Append(const T& value)
    {
        Item* item = new Item(value);
        AppendItem(item);
        return item;
    }
    Item* Append()
    {
        Item* item = new Item();
        AppendItem(item);
        return item;
    }
    Item* Prepend(const T& value)
    {
        Item* item = new Item(value);
        PrependItem(item);
        return item;
    }
    Item* Prepend()
    {
        Item* item = new Item();
        PrependItem(item);
        return item;
    }

    Item* Find(const T& value) const
    {
        for (VELDBasicListItem* it = first_item; it; it = it->successor)
            if (Value(it) == value) return static_cast<Item*>(it);
        return nullptr;
    }
    // Unlinks and deletes an item of this list.
    void Remove(VELDBasicListItem* item)
    {
        UnlinkItem(item);
        delete item;
    }
    // Removes the first item holding `value`; false when there is none.
    bool RemoveValue(const T& value)
    {
        Item* item = Find(value);
        if (!item) return false;
        Remove(item);
        return true;
    }
    void Clear()
    {
        VELDBasicListItem* it = first_item;
        while (it) {
            VELDBasicListItem* next = it->successor;
            delete it;
            it = next;
        }
        first_item = last_item = nullptr;
        l = 0;
    }

private:
    void CopyFrom(const VELDList& other)
    {
        for (VELDBasicListItem* it = other.first_item; it; it = it->successor) Append(Value(it));
    }
};

// ---------------------------------------------------------------------------
// Arrays

// A growable array of power-of-two capacity. Element i lives in slot
// (first + i) & (allocated - 1), so dropping from the front costs nothing and
// the array serves as a ring. Indexing past the end grows the array: callers
// rely on it, and nothing is bounds-checked.
template <class T>
class VELDArray {
public:
    VELDArray() : allocated(0), size(0), first(0), data(nullptr), owner(true) {}
    explicit VELDArray(int n)
        : allocated(compute_array_size(n)), size(n < 0 ? 0 : n), first(0),
          data(allocated ? new T[allocated] : nullptr), owner(true)
    {
    }
    // A view on a block that stays the caller's: never freed, and replaced by
    // an owned copy at the first growth past `count`.
    VELDArray(T* block, int count)
        : allocated(compute_array_size(count)), size(count), first(0), data(block), owner(false)
    {
    }
    VELDArray(const VELDArray& other) : allocated(0), size(0), first(0), data(nullptr), owner(true)
    {
        CopyFrom(other);
    }
    VELDArray(VELDArray&& other) noexcept
        : allocated(other.allocated), size(other.size), first(other.first), data(other.data), owner(other.owner)
    {
        other.allocated = other.size = other.first = 0;
        other.data = nullptr;
        other.owner = true;
    }
    VELDArray& operator=(const VELDArray& other)
    {
        if (this != &other) {
            Release();
            CopyFrom(other);
        }
        return *this;
    }
    VELDArray& operator=(VELDArray&& other) noexcept
    {
        if (this != &other) {
            Release();
            allocated = other.allocated;
            size = other.size;
            first = other.first;
            data = other.data;
            owner = other.owner;
            other.allocated = other.size = other.first = 0;
            other.data = nullptr;
            other.owner = true;
        }
        return *this;
    }
    virtual ~VELDArray() { Release(); }

    int Size() const { return size; }
    int Allocated() const { return allocated; }
    int First() const { return first; }
    bool IsOwner() const { return owner; }

    // The growing access. A slot that comes into use keeps what it last held.
    T& operator()(int i)
    {
        if (owner && i < allocated) {
            if (i >= size) size = i + 1;
            return data[(first + i) & (allocated - 1)];
        }
        if (!owner && i < size) return data[(first + i) & (allocated - 1)];
        Grow(i);
        return data[i];
    }
    // Plain access to an element in use: no growth, no check.
    T& operator[](int i) { return data[(first + i) & (allocated - 1)]; }
    const T& operator[](int i) const { return data[(first + i) & (allocated - 1)]; }

    T& Append() { return (*this)(size); }
    T& Append(const T& value)
    {
        T& slot = Append();
        slot = value;
        return slot;
    }
    // Drops element 0 at the cost of one add and one mask.
    void RemoveFirst()
    {
        if (size <= 0) return;
        first = (first + 1) & (allocated - 1);
        --size;
    }
    void RemoveLast()
    {
        if (size > 0) --size;
    }
    // Removes element i, moving the later ones down by one.
    void Remove(int i)
    {
        if (i < 0 || i >= size) return;
        if (i == 0) return RemoveFirst();
        for (int k = i; k + 1 < size; ++k) (*this)[k] = (*this)[k + 1];
        --size;
    }
    // Index of the first element equal to `value`, or -1.
    int IndexOf(const T& value) const
    {
        for (int i = 0; i < size; ++i)
            if ((*this)[i] == value) return i;
        return -1;
    }
    // Empties the array and keeps its block.
    void Clear()
    {
        size = 0;
        first = 0;
    }

    // The smallest power of two not below n: 0 for 0, 1 for 1.
    static int compute_array_size(int n)
    {
        if (n <= 0) return 0;
        int s = 1;
        while (s < n) s <<= 1;
        return s;
    }

private:
    void Grow(int i)
    {
        int newAllocated = compute_array_size(i + 1);
        T* block = new T[newAllocated];
        for (int k = 0; k < size; ++k) block[k] = data[(first + k) & (allocated - 1)];
        Release();
        data = block;
        allocated = newAllocated;
        first = 0;
        owner = true;
        size = i + 1;
    }
    void Release()
    {
        if (data && owner) delete[] data;
        data = nullptr;
        allocated = size = first = 0;
        owner = true;
    }
    void CopyFrom(const VELDArray& other)
    {
        allocated = compute_array_size(other.size);
        size = other.size;
        first = 0;
        owner = true;
        data = allocated ? new T[allocated] : nullptr;
        for (int k = 0; k < size; ++k) data[k] = other[k];
    }

    int allocated;
    int size;
    int first;
    T* data;
    bool owner;
};

// ---------------------------------------------------------------------------
// Records

template <class K, class V>
class VELDPair {
public:
    VELDPair() : hash(0), key(), value() {}
    VELDPair(const K& k, const V& v) : hash(0), key(k), value(v) {}
    virtual ~VELDPair() {}

    // The low half of the key's hash: a resize moves the pair without hashing
    // the key again.
    VELDUInt32 hash;
    K key;
    V value;
};

template <class TFirst, class TSecond>
class VELDCouple {
public:
    VELDCouple() : m_first(), m_second() {}
    VELDCouple(const TFirst& a, const TSecond& b) : m_first(a), m_second(b) {}
    virtual ~VELDCouple() {}

    TFirst& first() { return m_first; }
    const TFirst& first() const { return m_first; }
    TSecond& second() { return m_second; }
    const TSecond& second() const { return m_second; }

    TFirst m_first;
    TSecond m_second;
};

// Two blocks of 8-byte values of one shape, read as the real and imaginary
// parts of a matrix of `rows` by `columns`.
class VELDMatrix {
public:
    VELDMatrix() : rows(0), columns(0), re(nullptr), im(nullptr), owner(false) {}
    VELDMatrix(int r, int c) : rows(0), columns(0), re(nullptr), im(nullptr), owner(false) { Alloc(r, c); }
    VELDMatrix(const VELDMatrix&) = delete;
    VELDMatrix& operator=(const VELDMatrix&) = delete;
    virtual ~VELDMatrix() { Free(); }

    // Allocates both blocks of r x c values; a product that cannot be
    // represented fails as a bad array length.
    void Alloc(int r, int c);
    // Frees owned blocks; a matrix that doesn't own its blocks leaves them.
    void Free();

    int rows;
    int columns;
    double* re;
    double* im;
    bool owner;
};

inline void VELDMatrix::Alloc(int r, int c)
{
    Free();
    if (r < 0 || c < 0) throw std::bad_array_new_length();
    unsigned long n = static_cast<unsigned long>(r) * static_cast<unsigned long>(c);
    rows = r;
    columns = c;
    owner = true;
    re = new double[n];
    try {
        im = new double[n];
    } catch (...) {
        delete[] re;
        re = nullptr;
        throw;
    }
}

inline void VELDMatrix::Free()
{
    if (!owner) return;
    delete[] re;
    re = nullptr;
    delete[] im;
    im = nullptr;
}

// ---------------------------------------------------------------------------
// Hash tables

template <class K>
class VELDHashFunction {
public:
    virtual ~VELDHashFunction() {}
    virtual VELDUInt64 operator()(const K& key) const = 0;
};

class VELDBasicHashTable;

// Position in a walk over a hash table: bucket by bucket in index order,
// within a bucket from its first item on. The bucket is all ones before the
// first step; the pair is null at the end.
class VELDHashTableIterator {
public:
    VELDHashTableIterator() : bucket(0xFFFFFFFFu), item(nullptr), table(nullptr), pair(nullptr) {}
    explicit VELDHashTableIterator(VELDBasicHashTable* t) : bucket(0xFFFFFFFFu), item(nullptr), table(t), pair(nullptr) {}

    void Reset() { bucket = 0xFFFFFFFFu, item = nullptr, pair = nullptr; }

    VELDUInt32 bucket;
    VELDBasicListItem* item;
    VELDBasicHashTable* table;
    void* pair;
};

class VELDBasicHashTable {
public:
    // Steps the iterator; false and a null pair at the end.
    virtual bool nextX(VELDHashTableIterator& it) = 0;
    virtual ~VELDBasicHashTable() {}
};

// A chained hash table: a power-of-two array of lists of pairs. H hashes a key
// to 64 bits; keys compare with ==.
template <class K, class V, class H>
class VELDHashTable : public VELDBasicHashTable {
public:
    typedef VELDPair<K, V> Pair;
    typedef VELDList<Pair> Bucket;

    explicit VELDHashTable(int bucketBits = 4, bool resize = true)
        : hashFunction(), buckets(new VELDArray<Bucket>(1 << bucketBits)), bits(bucketBits), count(0),
          autoResize(resize)
    {
    }
    VELDHashTable(const VELDHashTable&) = delete;
    VELDHashTable& operator=(const VELDHashTable&) = delete;
    ~VELDHashTable() override { delete buckets; }

    int Count() const { return count; }
    int Bits() const { return bits; }
    int NbBuckets() const { return 1 << bits; }
    bool AutoResize() const { return autoResize; }
    void SetAutoResize(bool on) { autoResize = on; }
    const H& HashFunction() const { return hashFunction; }

    Pair* FindPair(const K& key) const
    {
        VELDUInt32 h = static_cast<VELDUInt32>(hashFunction(key));
        Bucket& bucket = (*buckets)[static_cast<int>(h & Mask())];
        for (VELDBasicListItem* it = bucket.First(); it; it = it->successor) {
            Pair& p = Bucket::Value(it);
            if (p.key == key) return &p;
        }
        return nullptr;
    }
    V* Find(const K& key) const
    {
        Pair* p = FindPair(key);
        return p ? &p->value : nullptr;
    }
    bool Contains(const K& key) const { return FindPair(key) != nullptr; }

    // The value of `key`, inserted with a default value when missing.
    V& operator[](const K& key)
    {
        Pair* p = FindPair(key);
        return p ? p->value : Insert(key).value;
    }
    // Sets the value of `key`, inserting it when missing.
    V& Set(const K& key, const V& value)
    {
        V& slot = (*this)[key];
        slot = value;
        return slot;
    }
    bool Remove(const K& key)
    {
        VELDUInt32 h = static_cast<VELDUInt32>(hashFunction(key));
        Bucket& bucket = (*buckets)[static_cast<int>(h & Mask())];
        for (VELDBasicListItem* it = bucket.First(); it; it = it->successor) {
            if (Bucket::Value(it).key == key) {
                bucket.Remove(it);
                --count;
                return true;
            }
        }
        return false;
    }
    void Clear()
    {
        for (int b = 0; b < NbBuckets(); ++b) (*buckets)[b].Clear();
        count = 0;
    }

    // Rebuilds the table with the smallest power of two of buckets not below
    // n. Pairs keep their stored hash and move in walking order, so each new
    // bucket holds its pairs in the old walking order.
    void Resize(int n)
    {
        int newBits = 0;
        for (unsigned v = n > 1 ? static_cast<unsigned>(n - 1) : 0u; v; v >>= 1) ++newBits;
        VELDArray<Bucket>* fresh = new VELDArray<Bucket>(1 << newBits);
        VELDUInt32 newMask = (1u << newBits) - 1u;
        VELDHashTableIterator it(this);
        bool more = nextX(it);
        while (more) {
            VELDBasicListItem* item = it.item;
            VELDUInt32 from = it.bucket;
            more = nextX(it);  // step before the item leaves its bucket
            (*buckets)[static_cast<int>(from)].UnlinkItem(item);
            (*fresh)[static_cast<int>(Bucket::Value(item).hash & newMask)].AppendItem(item);
        }
        delete buckets;
        buckets = fresh;
        bits = newBits;
    }

    bool nextX(VELDHashTableIterator& it) override
    {
        it.table = this;
        if (it.item) it.item = it.item->successor;
        while (!it.item) {
            ++it.bucket;  // all ones wraps to bucket 0
            if (it.bucket >= static_cast<VELDUInt32>(NbBuckets())) {
                it.bucket = static_cast<VELDUInt32>(NbBuckets());
                it.pair = nullptr;
                return false;
            }
            it.item = (*buckets)[static_cast<int>(it.bucket)].First();
        }
        it.pair = &Bucket::Value(it.item);
        return true;
    }
    static Pair* PairOf(const VELDHashTableIterator& it) { return static_cast<Pair*>(it.pair); }

private:
    VELDUInt32 Mask() const { return (1u << bits) - 1u; }

    Pair& Insert(const K& key)
    {
        VELDUInt32 h = static_cast<VELDUInt32>(hashFunction(key));
        Bucket& bucket = (*buckets)[static_cast<int>(h & Mask())];
        Pair& p = bucket.Append()->value;
        p.key = key;
        p.hash = h;
        ++count;
        if (autoResize && count > (1 << bits)) Resize(((count >> bits) + 1) << bits);
        return p;
    }

    H hashFunction;
    VELDArray<Bucket>* buckets;
    int bits;
    int count;
    bool autoResize;
};

#endif

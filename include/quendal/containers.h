// Keyed containers of the accounting tables: a chained hash map (PIMapExtL,
// PIMap) and a growable array (PIArrayExtL, PIArray), both derived from
// PIObjectExtL, which carries a lock pointer. Header-only templates over a
// lock policy and an allocator descriptor; keys and values are plain data
// that the containers never construct, destroy or free.
//
//   typedef PIMap<unsigned short, unsigned short, const char*, const char*, NullLocking,
//                 PIMapDefaultAlloc> Names;
//   Names names;
//   names[3] = "audio";
//   names.StartIteration();
//   unsigned short id; const char* name; bool more;
//   while (names.NextEntry(id, name, more)) { ... }
#ifndef QUENDAL_CONTAINERS_H
#define QUENDAL_CONTAINERS_H

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

// The lock policy that does nothing: containers with it take no lock and are
// not safe for concurrent use; the caller serialises access.
class NullLocking {
 public:
  void Lock() {}
  void Unlock() {}
};

// Allocates with malloc and frees with free: a failure gives null, never an
// exception.
struct PIDefaultAllocator {
  static void* Alloc(size_t size) { return malloc(size); }
  static void Free(void* memory) { free(memory); }
};

// Tags that say which kind of container an allocation is for.
struct PICommonAllocDescriptors {
  struct PIMap {};
  struct PIArray {};
};

// The allocator a container uses: Allocator's Alloc and Free, tagged with the
// container kind. Alloc returns null on failure.
template <class Descriptor, class Allocator>
struct PIAlloc {
  typedef Descriptor descriptor_type;
  static void* Alloc(size_t size) { return Allocator::Alloc(size); }
  static void Free(void* memory) { Allocator::Free(memory); }
};

// The allocators of the library's maps and arrays. Named so that C++03 code
// needs no "> >" when it names a container.
typedef PIAlloc<PICommonAllocDescriptors::PIMap, PIDefaultAllocator> PIMapDefaultAlloc;
typedef PIAlloc<PICommonAllocDescriptors::PIArray, PIDefaultAllocator> PIArrayDefaultAlloc;

// Abstract base of the containers: holds the pointer to the lock object.
// Containers are not copyable.
template <class Lock>
class PIObjectExtL {
 public:
  PIObjectExtL() : lockPtr(0) {}
  virtual ~PIObjectExtL() = 0;

  // Stores lock as the container's lock object.
  virtual void SetLock(Lock* lock) { lockPtr = lock; }
  // Returns the container's lock object (null for none).
  virtual Lock* GetLock() const { return lockPtr; }

 protected:
  Lock* lockPtr;

 private:
  PIObjectExtL(const PIObjectExtL&);
  PIObjectExtL& operator=(const PIObjectExtL&);
};

template <class Lock>
inline PIObjectExtL<Lock>::~PIObjectExtL() {}

// Chained hash map from K to V (AK and AV are the argument types). A key's
// bucket is (key >> 2) % bucketCount: keys 0 to 3 share a bucket. The bucket
// table never grows and entries are never rehashed, so chains lengthen as
// entries come. Nodes are carved from blocks of nodesPerBlock nodes and are
// released only by RemoveAll. Starts with 17 buckets, blocks of 10 nodes and
// no bucket table (made by the first insertion). The map has one built-in
// cursor: two walks of the same map must never overlap.
template <class K, class AK, class V, class AV, class Lock, class Alloc>
class PIMapExtL : public PIObjectExtL<Lock> {
 public:
  PIMapExtL()
      : bucketTable(0),
        bucketCount(17),
        entryCount(0),
        freeNodes(0),
        nodeBlocks(0),
        nodesPerBlock(10),
        cursorNode(0),
        nextNode(0) {}

  // Clears the lock pointer, then RemoveAll.
  virtual ~PIMapExtL() {
    this->lockPtr = 0;
    RemoveAll();
  }

  // Replaces the bucket table with count empty buckets and sets bucketCount
  // to count. Entries already in the map stay counted but can no longer be
  // found or walked (their nodes stay allocated until RemoveAll). When the
  // table cannot be allocated the map is left without one.
  void AllocBucketTable(unsigned int count) {
    if (bucketTable != 0) {
      Alloc::Free(bucketTable);
      bucketTable = 0;
    }
    // A count of 0 still gets one slot: bucket 0, where every key then goes.
    const size_t slots = count == 0 ? 1 : count;
    if (slots > static_cast<size_t>(-1) / sizeof(Node*)) {
      bucketCount = count;
      return;
    }
    Node** table = static_cast<Node**>(Alloc::Alloc(slots * sizeof(Node*)));
    if (table != 0) {
      for (size_t i = 0; i < slots; ++i) {
        table[i] = 0;
      }
    }
    bucketTable = table;
    bucketCount = count;
  }

  // Returns the value stored for key, inserting a zeroed value first when the
  // key is absent (entry count + 1). When memory for the bucket table or a
  // node block cannot be obtained, nothing is inserted and a zeroed scratch
  // value outside the map is returned; writes to it are lost.
  V& operator[](AK key) {
    const uint32_t bucket = BucketOf(key);
    if (bucketTable != 0) {
      for (Node* node = bucketTable[bucket]; node != 0; node = node->next) {
        if (node->key == key) {
          return node->value;
        }
      }
    } else {
      AllocBucketTable(bucketCount);
    }
    if (bucketTable == 0 || (freeNodes == 0 && !AddNodeBlock())) {
      return Scratch();
    }
    Node* node = freeNodes;
    freeNodes = node->next;
    ++entryCount;
    node->key = K();
    node->value = V();
    node->key = key;
    node->bucket = bucket;
    node->next = bucketTable[bucket];
    bucketTable[bucket] = node;
    return node->value;
  }

  // Removes every entry: frees the bucket table and every node block.
  // bucketCount and nodesPerBlock stay, so the next insertion makes a table of
  // the same size. The cursor is reset too: a walk in progress ends rather
  // than visit freed nodes.
  void RemoveAll() {
    if (bucketTable != 0) {
      Alloc::Free(bucketTable);
      bucketTable = 0;
    }
    entryCount = 0;
    freeNodes = 0;
    while (nodeBlocks != 0) {
      NodeBlock* previous = nodeBlocks->previous;
      Alloc::Free(nodeBlocks);
      nodeBlocks = previous;
    }
    cursorNode = 0;
    nextNode = 0;
  }

  // Starts a walk: the next NextEntry visits the first entry. With no entries
  // the walk is over at once.
  void StartIteration() {
    cursorNode = 0;
    nextNode = entryCount != 0 ? BeforeFirst() : 0;
  }

  // Visits the next entry of the walk, in ascending bucket order and newest
  // first within a bucket: copies its key and value out, sets hasSuccessor to
  // whether another entry follows, and returns true. Returns false, leaving
  // the arguments untouched, when the walk is over, also when the entry count
  // is non-zero but no bucket holds an entry.
  bool NextEntry(K& key, V& value, bool& hasSuccessor) {
    Node* entry = nextNode == BeforeFirst() ? FirstFromBucket(0) : nextNode;
    if (entry == 0) {
      nextNode = 0;
      return false;
    }
    Node* successor = entry->next != 0 ? entry->next : FirstFromBucket(entry->bucket + 1);
    cursorNode = entry;
    nextNode = successor;
    key = entry->key;
    value = entry->value;
    hasSuccessor = successor != 0;
    return true;
  }

  // The value of the entry NextEntry visited last, to change it in place.
  // Outside a walk it is a scratch value that belongs to no entry.
  V& CursorValue() { return cursorNode != 0 ? cursorNode->value : Scratch(); }

  // True when the walk is over: NextEntry has nothing more to visit.
  bool IsIterationDone() const { return nextNode == 0; }

  // The number of entries inserted since the last RemoveAll.
  uint32_t GetCount() const { return entryCount; }
  // The number of buckets: fixed from the bucket table's allocation on.
  uint32_t GetBucketCount() const { return bucketCount; }
  // How many nodes each node block holds.
  int32_t GetNodesPerBlock() const { return nodesPerBlock; }
  // False before the first insertion or AllocBucketTable, and after RemoveAll.
  bool HasBucketTable() const { return bucketTable != 0; }

  // The bucket key goes to: (key >> 2) % bucketCount, or 0 without buckets.
  uint32_t BucketOf(AK key) const {
    if (bucketCount == 0) {
      return 0;
    }
    return static_cast<uint32_t>((static_cast<unsigned long>(key) >> 2) % bucketCount);
  }

 protected:
  struct Node {
    Node* next;
    uint32_t bucket;
    K key;
    V value;
  };

  // Header of a node block, linking it to the block allocated before it.
  struct NodeBlock {
    NodeBlock* previous;
  };

  Node** bucketTable;
  uint32_t bucketCount;
  uint32_t entryCount;
  Node* freeNodes;
  NodeBlock* nodeBlocks;
  int32_t nodesPerBlock;
  Node* cursorNode;
  // All ones: the walk stands before the first entry; null: it is over.
  Node* nextNode;

 private:
  static Node* BeforeFirst() { return reinterpret_cast<Node*>(~static_cast<uintptr_t>(0)); }

  static V& Scratch() {
    static V scratch;
    scratch = V();
    return scratch;
  }

  Node* FirstFromBucket(uint32_t start) const {
    if (bucketTable == 0) {
      return 0;
    }
    const uint32_t slots = bucketCount == 0 ? 1 : bucketCount;
    for (uint32_t bucket = start; bucket < slots; ++bucket) {
      if (bucketTable[bucket] != 0) {
        return bucketTable[bucket];
      }
    }
    return 0;
  }

  // Threads a new block's nodes onto the free list in address order, ahead
  // of the nodes already there. The nodes start one node size into the block
  // so that they are aligned as nodes.
  bool AddNodeBlock() {
    const size_t nodes = nodesPerBlock > 0 ? static_cast<size_t>(nodesPerBlock) : 1;
    if (nodes > static_cast<size_t>(-1) / sizeof(Node) - 1) {
      return false;
    }
    NodeBlock* block = static_cast<NodeBlock*>(Alloc::Alloc((nodes + 1) * sizeof(Node)));
    if (block == 0) {
      return false;
    }
    block->previous = nodeBlocks;
    nodeBlocks = block;
    Node* first = reinterpret_cast<Node*>(block) + 1;
    for (size_t i = 0; i + 1 < nodes; ++i) {
      first[i].next = &first[i + 1];
    }
    first[nodes - 1].next = freeNodes;
    freeNodes = first;
    return true;
  }
};

// The map with a lock object of its own: the lock pointer always points at
// it, and SetLock ignores its argument. Its destructor is that of PIMapExtL.
template <class K, class AK, class V, class AV, class Lock, class Alloc>
class PIMap : public PIMapExtL<K, AK, V, AV, Lock, Alloc> {
 public:
  PIMap() { this->lockPtr = &ownLock; }

  // Does nothing: GetLock keeps returning the map's own lock object.
  virtual void SetLock(Lock*) {}

 private:
  Lock ownLock;
};

// Growable array of T (AT is the argument type): element storage, null until
// elements exist, and three bookkeeping words (element count, capacity, growth
// step), all zero at construction. This library adds no elements.
template <class T, class AT, class Lock, class Alloc>
class PIArrayExtL : public PIObjectExtL<Lock> {
 public:
  PIArrayExtL() : elements(0), elementCount(0), capacity(0), growBy(0) {}

  // Frees the element storage; unlike the map family, the lock pointer is
  // left as it is.
  virtual ~PIArrayExtL() {
    if (elements != 0) {
      Alloc::Free(elements);
    }
  }

  // The number of elements: 0 in this library, which adds none.
  uint32_t GetSize() const { return elementCount; }
  // The element storage, null while there are no elements.
  const T* GetData() const { return elements; }

 protected:
  T* elements;
  uint32_t elementCount;
  uint32_t capacity;
  uint32_t growBy;
};

// The array with a lock object of its own, which the lock pointer points at.
template <class T, class AT, class Lock, class Alloc>
class PIArray : public PIArrayExtL<T, AT, Lock, Alloc> {
 public:
  PIArray() { this->lockPtr = &ownLock; }

  // Clears the lock pointer, then frees the element storage as PIArrayExtL.
  virtual ~PIArray() { this->lockPtr = 0; }

 private:
  Lock ownLock;
};

#endif

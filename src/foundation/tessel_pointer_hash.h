// pointer_hash: despite the name an AVL tree keyed by pointers, with nodes
// taken from a pool of blocks. The same tree, with other keys, serves the
// string table and the type table of the data tree writer.
#pragma once

#include "foundation/tessel_types.h"

// Three-way comparison of two keys: negative, 0 or positive.
typedef int64 (*avl_compare)(void const *KeyA, void const *KeyB, void *Context);

#pragma pack(push, 4)
struct avl_node
{
    void const *Key;
    void *Value;
    avl_node *Left;
    uintaddrx Right; // right child pointer; the low two bits hold the balance (0 left-heavy, 1 even, 2 right-heavy)
};

struct avl_tree
{
    avl_node *FreeNode;
    avl_node *Minimum;
    avl_node *Maximum;
    avl_node *Root;
    void *FirstBlock;
    avl_compare Compare;
    void *CompareContext;
    int32 Count;
};
#pragma pack(pop)

typedef avl_tree pointer_hash;

// Generic tree with a comparer (Compare null: keys are compared as pointers).
void InitializeAVLTree(avl_tree &Tree, avl_compare Compare, void *CompareContext);
void ClearAVLTree(avl_tree &Tree);
// Null when the pool could not grow.
avl_node *AVLInsert(avl_tree &Tree, void const *Key, void *Value);
avl_node *AVLFind(avl_tree const &Tree, void const *Key);
avl_node *AVLLeft(avl_node const *Node);
avl_node *AVLRight(avl_node const *Node);
// In-order walk, smallest key first; Visit returns false to stop.
void AVLWalk(avl_tree const &Tree, bool (*Visit)(avl_node *Node, void *UserData), void *UserData);

pointer_hash *NewPointerHash();
void DeletePointerHash(pointer_hash *Hash);
void AddPointerToHash(pointer_hash *Hash, void const *Key, void *Value);
// True when the key existed and its value was replaced.
bool SetHashedPointerData(pointer_hash *Hash, void const *Key, void *Value);
// Value becomes the stored value, or null when the key is absent.
bool GetHashedPointerData(pointer_hash const *Hash, void const *Key, void **Value);

template <typename T>
inline bool GetHashedPointerData(pointer_hash const *Hash, void const *Key, T **Value)
{
    void *Raw = 0;
    bool Found = GetHashedPointerData(Hash, Key, &Raw);
    *Value = (T *)Raw;
    return Found;
}

// AVL tree with pooled nodes; the pointer_hash is this tree keyed by
// pointers compared as signed 64-bit differences.
#include "foundation/tessel_pointer_hash.h"

#include <cstring>

#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

namespace {

int32 const NodesPerBlock = 32;
int32 const MaxTreeHeight = 96;

enum avl_balance
{
    Balance_LeftHeavy = 0,
    Balance_Even = 1,
    Balance_RightHeavy = 2,
};

inline avl_node *RightOf(avl_node const *Node)
{
    return (avl_node *)(Node->Right & ~(uintaddrx)3);
}
inline uint32 BalanceOf(avl_node const *Node)
{
    return (uint32)(Node->Right & 3);
}
inline void SetRight(avl_node *Node, avl_node *Right)
{
    Node->Right = (uintaddrx)Right | (Node->Right & 3);
}
inline void SetBalance(avl_node *Node, uint32 Balance)
{
    Node->Right = (Node->Right & ~(uintaddrx)3) | Balance;
}

int64 ComparePointers(void const *KeyA, void const *KeyB, void *)
{
    return (int64)((intaddrx)KeyA - (intaddrx)KeyB);
}

inline int64 Compare(avl_tree const &Tree, void const *A, void const *B)
{
    return Tree.Compare(A, B, Tree.CompareContext);
}

// A free run: the head node counts the free nodes that follow it in memory
// (itself included) in Key and links the next run in Left.
bool GrowPool(avl_tree &Tree)
{
    intaddrx HeaderSize = 8;
    uint8 *Block = (uint8 *)TesselAllocate(HeaderSize + (intaddrx)sizeof(avl_node) * NodesPerBlock);
    if (!Block) return false;
    *(void **)Block = Tree.FirstBlock;
    Tree.FirstBlock = Block;
    avl_node *Run = (avl_node *)(Block + HeaderSize);
    Run->Key = (void const *)(intaddrx)NodesPerBlock;
    Run->Left = Tree.FreeNode;
    Tree.FreeNode = Run;
    return true;
}

avl_node *TakeNode(avl_tree &Tree)
{
    if (!Tree.FreeNode && !GrowPool(Tree)) return 0;
    avl_node *Node = Tree.FreeNode;
    intaddrx RunLength = (intaddrx)Node->Key;
    if (RunLength >= 2) {
        avl_node *NextHead = Node + 1;
        NextHead->Key = (void const *)(RunLength - 1);
        NextHead->Left = Node->Left;
        Tree.FreeNode = NextHead;
    } else {
        Tree.FreeNode = Node->Left;
    }
    return Node;
}

avl_node *RotateLeft(avl_node *Node)
{
    avl_node *Pivot = RightOf(Node);
    SetRight(Node, Pivot->Left);
    Pivot->Left = Node;
    return Pivot;
}

avl_node *RotateRight(avl_node *Node)
{
    avl_node *Pivot = Node->Left;
    Node->Left = RightOf(Pivot);
    SetRight(Pivot, Node);
    return Pivot;
}

// Rebalances a subtree whose root became doubly heavy; returns the new root.
avl_node *Rebalance(avl_node *Node, bool LeftHeavy)
{
    if (LeftHeavy) {
        avl_node *Child = Node->Left;
        if (BalanceOf(Child) == Balance_LeftHeavy) {
            avl_node *Root = RotateRight(Node);
            SetBalance(Node, Balance_Even);
            SetBalance(Root, Balance_Even);
            return Root;
        }
        avl_node *Grand = RightOf(Child);
        uint32 GrandBalance = BalanceOf(Grand);
        Node->Left = RotateLeft(Child);
        avl_node *Root = RotateRight(Node);
        SetBalance(Node, GrandBalance == Balance_LeftHeavy ? Balance_RightHeavy : Balance_Even);
        SetBalance(Child, GrandBalance == Balance_RightHeavy ? Balance_LeftHeavy : Balance_Even);
        SetBalance(Root, Balance_Even);
        return Root;
    }
    avl_node *Child = RightOf(Node);
    if (BalanceOf(Child) == Balance_RightHeavy) {
        avl_node *Root = RotateLeft(Node);
        SetBalance(Node, Balance_Even);
        SetBalance(Root, Balance_Even);
        return Root;
    }
    avl_node *Grand = Child->Left;
    uint32 GrandBalance = BalanceOf(Grand);
    SetRight(Node, RotateRight(Child));
    avl_node *Root = RotateLeft(Node);
    SetBalance(Node, GrandBalance == Balance_RightHeavy ? Balance_LeftHeavy : Balance_Even);
    SetBalance(Child, GrandBalance == Balance_LeftHeavy ? Balance_RightHeavy : Balance_Even);
    SetBalance(Root, Balance_Even);
    return Root;
}

} // namespace

void InitializeAVLTree(avl_tree &Tree, avl_compare CompareFunction, void *CompareContext)
{
    memset(&Tree, 0, sizeof(Tree));
    Tree.Compare = CompareFunction ? CompareFunction : ComparePointers;
    Tree.CompareContext = CompareContext;
}

void ClearAVLTree(avl_tree &Tree)
{
    void *Block = Tree.FirstBlock;
    while (Block) {
        void *Next = *(void **)Block;
        TesselFree(Block);
        Block = Next;
    }
    Tree.FirstBlock = 0;
    Tree.FreeNode = 0;
    Tree.Root = Tree.Minimum = Tree.Maximum = 0;
    Tree.Count = 0;
}

avl_node *AVLFind(avl_tree const &Tree, void const *Key)
{
    avl_node *Node = Tree.Root;
    while (Node) {
        int64 Difference = Compare(Tree, Key, Node->Key);
        if (Difference == 0) return Node;
        Node = Difference < 0 ? Node->Left : RightOf(Node);
    }
    return 0;
}

avl_node *AVLLeft(avl_node const *Node)
{
    return Node->Left;
}
avl_node *AVLRight(avl_node const *Node)
{
    return RightOf(Node);
}

avl_node *AVLInsert(avl_tree &Tree, void const *Key, void *Value)
{
    avl_node *Path[MaxTreeHeight];
    bool WentLeft[MaxTreeHeight];
    int32 Depth = 0;
    for (avl_node *Node = Tree.Root; Node;) {
        if (Depth >= MaxTreeHeight) return 0;
        bool Left = Compare(Tree, Key, Node->Key) < 0;
        Path[Depth] = Node;
        WentLeft[Depth] = Left;
        ++Depth;
        Node = Left ? Node->Left : RightOf(Node);
    }
    avl_node *NewNode = TakeNode(Tree);
    if (!NewNode) return 0;
    NewNode->Key = Key;
    NewNode->Value = Value;
    NewNode->Left = 0;
    NewNode->Right = Balance_Even;
    ++Tree.Count;
    if (!Tree.Minimum || Compare(Tree, Key, Tree.Minimum->Key) < 0) Tree.Minimum = NewNode;
    if (!Tree.Maximum || Compare(Tree, Key, Tree.Maximum->Key) >= 0) Tree.Maximum = NewNode;

    if (Depth == 0) {
        Tree.Root = NewNode;
        return NewNode;
    }
    if (WentLeft[Depth - 1])
        Path[Depth - 1]->Left = NewNode;
    else
        SetRight(Path[Depth - 1], NewNode);

    // Walk back up, stopping at the first node whose height stays the same.
    for (int32 Level = Depth - 1; Level >= 0; --Level) {
        avl_node *Node = Path[Level];
        uint32 Balance = BalanceOf(Node);
        avl_node *Replacement = 0;
        if (WentLeft[Level]) {
            if (Balance == Balance_RightHeavy) {
                SetBalance(Node, Balance_Even);
                break;
            }
            if (Balance == Balance_Even) {
                SetBalance(Node, Balance_LeftHeavy);
                continue;
            }
            Replacement = Rebalance(Node, true);
        } else {
            if (Balance == Balance_LeftHeavy) {
                SetBalance(Node, Balance_Even);
                break;
            }
            if (Balance == Balance_Even) {
                SetBalance(Node, Balance_RightHeavy);
                continue;
            }
            Replacement = Rebalance(Node, false);
        }
        if (Level == 0)
            Tree.Root = Replacement;
        else if (WentLeft[Level - 1])
            Path[Level - 1]->Left = Replacement;
        else
            SetRight(Path[Level - 1], Replacement);
        break;
    }
    return NewNode;
}

static bool WalkNode(avl_node *Node, bool (*Visit)(avl_node *, void *), void *UserData)
{
    // Iterative in-order walk with an explicit stack.
    avl_node *Stack[MaxTreeHeight];
    int32 Depth = 0;
    while (Node || Depth > 0) {
        while (Node) {
            if (Depth >= MaxTreeHeight) return false;
            Stack[Depth++] = Node;
            Node = Node->Left;
        }
        Node = Stack[--Depth];
        if (!Visit(Node, UserData)) return false;
        Node = RightOf(Node);
    }
    return true;
}

void AVLWalk(avl_tree const &Tree, bool (*Visit)(avl_node *Node, void *UserData), void *UserData)
{
    WalkNode(Tree.Root, Visit, UserData);
}

pointer_hash *NewPointerHash()
{
    pointer_hash *Hash = (pointer_hash *)TesselAllocate(sizeof(pointer_hash));
    if (Hash) InitializeAVLTree(*Hash, 0, 0);
    return Hash;
}

void DeletePointerHash(pointer_hash *Hash)
{
    if (!Hash) return;
    ClearAVLTree(*Hash);
    TesselFree(Hash);
}

void AddPointerToHash(pointer_hash *Hash, void const *Key, void *Value)
{
    CheckPointer(Hash, LogCategory_PointerHash, TESSEL_NOTHING);
    if (!AVLInsert(*Hash, Key, Value)) {
        TesselError(LogCategory_PointerHash, "Out of space in pointer hash table");
    }
}

bool SetHashedPointerData(pointer_hash *Hash, void const *Key, void *Value)
{
    CheckPointer(Hash, LogCategory_PointerHash, false);
    avl_node *Node = AVLFind(*Hash, Key);
    if (Node) {
        Node->Value = Value;
        return true;
    }
    AddPointerToHash(Hash, Key, Value);
    return false;
}

bool GetHashedPointerData(pointer_hash const *Hash, void const *Key, void **Value)
{
    *Value = 0;
    CheckPointer(Hash, LogCategory_PointerHash, false);
    avl_node *Node = AVLFind(*Hash, Key);
    if (!Node) return false;
    *Value = Node->Value;
    return true;
}

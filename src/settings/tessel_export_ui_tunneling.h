// The settings tree: settings_nodes that follow the scene (file, textures,
// materials, meshes, models with their bones, animations with their track
// groups and bones), each with a requester of its own or inheriting the
// nearest ancestor's; the node block and the settings file.
#pragma once

#include "foundation/tessel_types.h"
#include "settings/tessel_requester.h"

#pragma pack(push, 4)
struct settings_node
{
    settings_node *Parent;
    char const *Name;            // copied
    char const *ChildGroupLabel; // heading of the children; starts as the name
    requester *Requester;        // null until the node is given its own
    settings_node *FirstChild;
    settings_node *LastChild;
    settings_node *NextSibling;
};
#pragma pack(pop)

// A node from the pools, appended to Parent's children (Parent may be null
// for a root). Name is copied; Requester may be null.
settings_node *NewSettingsNode(settings_pools &Pools, settings_node *Parent, char const *Name, requester *Requester);
void SetChildGroupLabel(settings_node *Node, char const *Label);

// The requester that governs Node: its own or the nearest ancestor's.
requester *GetNodeRequester(settings_node const *Node);
// Depth first from Node: the first node whose requester has Id, and that
// requester. Use it to find "File settings" (69) under the root.
settings_node *FindSettingsNode(settings_node const *Node, int32 Id);
requester *FindRequesterInTree(settings_node const *Node, int32 Id);

// The default tree: "Settings" ("Root settings") with the children "File",
// "Textures", "Materials", "Meshes", "Models" and "Animations", each with a
// newly built category requester. Null if the pools run out.
settings_node *BuildDefaultSettingsTree(settings_pools &Pools);

// Gives Node a deep copy of its nearest ancestor's requester if it has none,
// then reads Block (a requester block, may be null) into it. If the block
// can't be read and the requester was copied, the ancestor's values are
// loaded instead so that the object follows its category.
bool AttachSettings(settings_node *Node, uint8 const *Block, int32 BlockSize);

// Applies Source to Node's own requester (with Force), then spreads down:
// each child takes its parent's requester, with ChildForce.
void SpreadSettings(settings_node *Node, requester const *Source, bool Force, bool ChildForce);

// Node block: magic 0xCA5EBABA, the node's requester block, then the child
// nodes that have a requester, by requester id and size. Depth 0 stores no
// children; each level down the depth is one less.
int32 SizeOfNodeBlock(settings_node const *Node, int32 Depth);
int32 WriteNodeBlock(settings_node const *Node, int32 Depth, uint8 *Buffer, int32 Size);
// Child node blocks are matched to the first child whose requester has the
// stored id; unknown ones are skipped. A malformed block changes nothing and
// logs "Corrupted settings data encountered". Returns bytes taken or -1.
int32 ReadNodeBlock(settings_node *Node, uint8 const *Data, int32 Size);

// A settings file is the root's node block. Loading reads it into the tree
// and spreads the root's values down without force. False (defaults kept)
// when the file can't be opened or read, or is malformed.
bool LoadSettingsFile(settings_node *Root, char const *FileName);
// The same, for a caller that must not act on a damaged file: false (with
// the reasons logged) unless the whole file is well-formed and every id,
// size and value in it is one this release knows. The tree may be partly
// changed when the result is false; load into a scratch tree to check first.
bool LoadSettingsFileStrictly(settings_node *Root, char const *FileName);
// Writes the root's node block with all levels below it.
bool WriteSettingsFile(settings_node const *Root, char const *FileName);
// The same into a block from the allocation hook (free with TesselFree).
uint8 *WriteSettingsToMemory(settings_node const *Root, int32 *Size);

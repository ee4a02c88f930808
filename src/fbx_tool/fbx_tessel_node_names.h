// Unique node names for a loaded scene.
#pragma once

class KFbxScene;

// Renames every node whose name an earlier node (bones first, then depth-first
// order) already has to "Name.N", with a warning for each. False when memory
// ran out, in which case some nodes may keep a repeated name.
bool MakeNodeNamesUnique(KFbxScene *Scene);

#include "geometry/tessel_tangent_frame.h"

#include "geometry/tessel_mesh_builder.h"

// Tangent frame computation arrives with the tangent milestone; until then
// every request falls back to the constant frame.
bool BuildTangentFrames(mesh_builder *Builder)
{
    return false;
}

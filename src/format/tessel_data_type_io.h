// Conversion of objects between types by member names: the tool for vertex
// layout changes and for reading records written by other versions.
#pragma once

#include "format/tessel_data_type_definitions.h"

// Fills Destination from Source member by member, matching names with the
// system's name comparison. Destination members without a source counterpart
// are cleared (ClearObject); members that can't be converted (pointers from
// other kinds, transforms from non-transforms) are cleared as well.
void ConvertSingleObject(data_type_definition const *SourceType, void const *Source,
                         data_type_definition const *DestinationType, void *Destination);

// The same without clearing: destination members the source lacks keep
// their values.
void MergeSingleObject(data_type_definition const *SourceType, void const *Source,
                       data_type_definition const *DestinationType, void *Destination);

// Count objects laid out one after the other on both sides.
void ConvertObjects(int32 Count, data_type_definition const *SourceType, void const *Source,
                    data_type_definition const *DestinationType, void *Destination);

// Integers of one scalar kind to another, truncated to the destination's
// width. Source and destination may be the same memory (narrowing in place
// runs front to back, widening back to front). False for a kind that isn't
// an integer kind.
bool ConvertIntegerArray(int32 Count, member_type SourceKind, void const *Source, member_type DestinationKind,
                         void *Destination);

// A conversion between two fixed layouts with the members matched once, for
// hot loops over many objects (vertices). It gives the same bytes as
// ConvertSingleObject and MergeSingleObject.
struct conversion_plan;
conversion_plan *NewConversionPlan(data_type_definition const *SourceType, data_type_definition const *DestinationType);
void FreeConversionPlan(conversion_plan *Plan);
// ClearUnmatched true is the convert form, false the merge form.
void ConvertWithPlan(conversion_plan const *Plan, void const *Source, void *Destination, bool ClearUnmatched);

// The file builder: streams per section on temporary files, fixups and
// marshallings in stack allocators, and the layout of the finished file.
#include "format/tessel_file_builder.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "format/tessel_file_compressor.h"
#include "format/tessel_platform_convert.h"
#include "format/tessel_work_queue.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"
#include "platform/tessel_platform.h"

enum
{
    TemporaryNameSize = FileBuilderPathSize * 2 + 64,
};

int32 GetStreamForMarshalling(uint32 Marshalling)
{
    if (Marshalling == 0 || Marshalling == 4) return Stream32Bit;
    if (Marshalling == 2) return Stream16Bit;
    return Stream8Bit;
}

static void GetStreamFileName(file_builder const &Builder, int32 SectionIndex, int32 StreamIndex, char *Name)
{
    ConvertToStringArgs(TemporaryNameSize, Name, "%s/%s_%d_%d.utf", Builder.TemporaryDirectory, Builder.FileNameRoot,
                        SectionIndex, StreamIndex);
}

static void GetCompressedFileName(file_builder const &Builder, int32 SectionIndex, char *Name)
{
    ConvertToStringArgs(TemporaryNameSize, Name, "%s/%s_%d.ctf", Builder.TemporaryDirectory, Builder.FileNameRoot,
                        SectionIndex);
}

static void CloseStreamWriters(file_builder &Builder)
{
    for (int32 SectionIndex = 0; SectionIndex < Builder.SectionCount; ++SectionIndex) {
        file_builder_section &Section = Builder.Sections[SectionIndex];
        for (int32 StreamIndex = 0; StreamIndex < StreamCount; ++StreamIndex) {
            DeleteFileWriter(Section.StreamWriters[StreamIndex]);
            Section.StreamWriters[StreamIndex] = 0;
            if (Section.StreamBuffers[StreamIndex]) TesselFree(Section.StreamBuffers[StreamIndex]);
            Section.StreamBuffers[StreamIndex] = 0;
            Section.StreamBufferFill[StreamIndex] = 0;
        }
    }
}

static void DeleteTemporaryFiles(file_builder &Builder)
{
    char Name[TemporaryNameSize];
    for (int32 SectionIndex = 0; SectionIndex < Builder.SectionCount; ++SectionIndex) {
        for (int32 StreamIndex = 0; StreamIndex < StreamCount; ++StreamIndex) {
            GetStreamFileName(Builder, SectionIndex, StreamIndex, Name);
            if (FileExists(Name)) DeleteFile(Name);
        }
        GetCompressedFileName(Builder, SectionIndex, Name);
        if (FileExists(Name)) DeleteFile(Name);
    }
}

static void FreeFileBuilder(file_builder *Builder)
{
    CloseStreamWriters(*Builder);
    if (Builder->UseTemporaryFiles && Builder->TemporaryDirectory[0]) {
        DeleteTemporaryFiles(*Builder);
        RemoveDirectory(Builder->TemporaryDirectory);
    }
    StackCleanUp(Builder->FixupAllocator);
    StackCleanUp(Builder->MarshallingAllocator);
    TesselFree(Builder);
}

file_builder *BeginFile(int32 SectionCount, uint32 FileTypeTag, file_magic_block const &MagicBlock,
                        char const *TemporaryDirectory, char const *FileNameRoot)
{
    CheckCondition(SectionCount > 0, LogCategory_FileWriting, 0);
    CheckPointer(TemporaryDirectory, LogCategory_FileWriting, 0);
    CheckPointer(FileNameRoot, LogCategory_FileWriting, 0);

    file_builder *Builder = 0;
    aggr_allocator Allocator;
    BeginAggregateAllocation(Allocator);
    SetAggregateClear(Allocator);
    SetAggregateAlignment(Allocator, 8);
    intaddrx Offset = AggregateAllocate(Allocator, &Builder, sizeof(file_builder));
    AggregateAllocateArray(Allocator, Offset, TESSEL_OFFSET_OF(file_builder, SectionCount),
                           TESSEL_OFFSET_OF(file_builder, Sections), SectionCount, sizeof(file_builder_section));
    if (!EndAggregateAllocation(Allocator)) return 0;

    Builder->PlatformMagicValue = MagicBlock;
    Builder->FileTypeTag = FileTypeTag;
    // Every builder gets a folder of its own, made with an unguessable name
    // and open to this user alone; its files are created exclusively, so
    // that no one can plant a link where they go.
    CopyStringMaximum(Builder->FileNameRoot, FileBuilderPathSize, FileNameRoot);
    Builder->UseTemporaryFiles = true;
    if (!CreatePrivateDirectory(TemporaryDirectory, FileNameRoot, Builder->TemporaryDirectory, FileBuilderPathSize)) {
        Builder->TemporaryDirectory[0] = 0;
        FreeFileBuilder(Builder);
        return 0;
    }
    StackInitialize(Builder->FixupAllocator, sizeof(file_builder_fixup), FileBuilderUnitsPerBlock);
    StackInitialize(Builder->MarshallingAllocator, sizeof(file_builder_marshalling), FileBuilderUnitsPerBlock);

    for (int32 SectionIndex = 0; SectionIndex < SectionCount; ++SectionIndex) {
        Builder->Sections[SectionIndex].Header.InternalAlignment = 4;
    }

    char Name[TemporaryNameSize];
    for (int32 SectionIndex = 0; SectionIndex < SectionCount; ++SectionIndex) {
        for (int32 StreamIndex = 0; StreamIndex < StreamCount; ++StreamIndex) {
            GetStreamFileName(*Builder, SectionIndex, StreamIndex, Name);
            file_writer *Writer = CreateExclusiveFileWriter(Name);
            if (!Writer) {
                TesselError(LogCategory_FileWriting, "Unable to create temporary file %s", Name);
                FreeFileBuilder(Builder);
                return 0;
            }
            Builder->Sections[SectionIndex].StreamWriters[StreamIndex] = Writer;
        }
    }

    Builder->Healthy = true;
    return Builder;
}

void SetFileSectionFormat(file_builder *Builder, int32 SectionIndex, int32 CompressionType, int32 Alignment)
{
    CheckPointer(Builder, LogCategory_FileWriting, TESSEL_NOTHING);
    CheckIndex(SectionIndex, Builder->SectionCount, LogCategory_FileWriting, TESSEL_NOTHING);
    CheckCondition(Alignment > 0, LogCategory_FileWriting, TESSEL_NOTHING);

    if (CompressionType == Trove0Compression) {
        TesselWarning(LogCategory_Compression, "Substituting Trove1 compression for obsolete Trove0 compression\n");
        CompressionType = Trove1Compression;
    }
    file_section_header &Header = Builder->Sections[SectionIndex].Header;
    Header.Format = (uint32)CompressionType;
    Header.InternalAlignment = (uint32)Alignment;
}

static bool WriteZeros(file_writer *Writer, uint32 Count)
{
    static uint8 const Zeros[4096] = {};
    bool Result = true;
    while (Result && Count > 0) {
        uint32 Piece = Count < sizeof(Zeros) ? Count : (uint32)sizeof(Zeros);
        Result = Write(Writer, (int32)Piece, Zeros);
        Count -= Piece;
    }
    return Result;
}

static bool FlushStream(file_builder_section &Section, int32 StreamIndex)
{
    uint32 Fill = Section.StreamBufferFill[StreamIndex];
    Section.StreamBufferFill[StreamIndex] = 0;
    return Fill == 0 || Write(Section.StreamWriters[StreamIndex], (int32)Fill, Section.StreamBuffers[StreamIndex]);
}

// Appends Size bytes (zeros when Data is null) through the stream's buffer.
static bool AppendToStream(file_builder_section &Section, int32 StreamIndex, uint32 Size, void const *Data)
{
    if (!Section.StreamBuffers[StreamIndex]) {
        Section.StreamBuffers[StreamIndex] = TesselAllocate(FileCopyBlockSize);
        if (!Section.StreamBuffers[StreamIndex]) return false;
    }
    uint8 *Buffer = (uint8 *)Section.StreamBuffers[StreamIndex];
    uint8 const *Bytes = (uint8 const *)Data;
    while (Size > 0) {
        uint32 &Fill = Section.StreamBufferFill[StreamIndex];
        if (Fill == (uint32)FileCopyBlockSize && !FlushStream(Section, StreamIndex)) return false;
        // Large blocks bypass the buffer once it is empty.
        if (Fill == 0 && Bytes && Size >= (uint32)FileCopyBlockSize) {
            return Write(Section.StreamWriters[StreamIndex], (int32)Size, Bytes);
        }
        uint32 Piece = (uint32)FileCopyBlockSize - Fill;
        if (Piece > Size) Piece = Size;
        if (Bytes) {
            memcpy(Buffer + Fill, Bytes, Piece);
            Bytes += Piece;
        } else {
            memset(Buffer + Fill, 0, Piece);
        }
        Fill += Piece;
        Size -= Piece;
    }
    return true;
}

void WriteSectionData(file_builder *Builder, int32 SectionIndex, uint32 Marshalling, int32 Size, void const *Data,
                      file_location *Result)
{
    if (Result) memset(Result, 0, sizeof(*Result));
    CheckPointer(Builder, LogCategory_FileWriting, TESSEL_NOTHING);
    CheckIndex(SectionIndex, Builder->SectionCount, LogCategory_FileWriting, TESSEL_NOTHING);
    CheckCondition(Size >= 0, LogCategory_FileWriting, TESSEL_NOTHING);

    file_builder_section &Section = Builder->Sections[SectionIndex];
    int32 StreamIndex = GetStreamForMarshalling(Marshalling);
    if (Result) {
        Result->SectionIndex = SectionIndex;
        Result->StreamIndex = StreamIndex;
        Result->Offset = Section.StreamSize[StreamIndex];
    }
    if (!Builder->Healthy) return;

    // Pad so that the next object starts on the section's alignment.
    uint32 Alignment = Section.Header.InternalAlignment;
    uint64 NewSize = (uint64)Section.StreamSize[StreamIndex] + (uint32)Size;
    uint32 Padding = (uint32)((Alignment - NewSize % Alignment) % Alignment);
    NewSize += Padding;
    bool Written = NewSize <= 0xFFFFFFFFu && AppendToStream(Section, StreamIndex, (uint32)Size, Data) &&
                   AppendToStream(Section, StreamIndex, Padding, 0);
    if (!Written) {
        TesselError(LogCategory_FileWriting, "Unable to write %d bytes to section %d stream %d", Size, SectionIndex,
                    StreamIndex);
        Builder->Healthy = false;
        return;
    }
    Section.StreamSize[StreamIndex] = (uint32)NewSize;
}

void OffsetLocation(file_builder *Builder, file_location const &Location, int32 Delta, file_location *Result)
{
    CheckPointer(Result, LogCategory_FileWriting, TESSEL_NOTHING);
    *Result = Location;
    Result->Offset += (uint32)Delta;
}

void AddFixup(file_builder *Builder, file_location const &From, int32 Delta, file_location const &To)
{
    CheckPointer(Builder, LogCategory_FileWriting, TESSEL_NOTHING);
    CheckIndex(From.SectionIndex, Builder->SectionCount, LogCategory_FileWriting, TESSEL_NOTHING);
    CheckIndex(To.SectionIndex, Builder->SectionCount, LogCategory_FileWriting, TESSEL_NOTHING);

    file_builder_fixup *Fixup = (file_builder_fixup *)NewStackUnit(Builder->FixupAllocator, 0);
    if (!Fixup) {
        Builder->Healthy = false;
        return;
    }
    Fixup->From = From;
    Fixup->From.Offset += (uint32)Delta;
    Fixup->To = To;
    Fixup->Next = 0;

    file_builder_section &Section = Builder->Sections[From.SectionIndex];
    if (Section.LastFixup)
        Section.LastFixup->Next = Fixup;
    else
        Section.FirstFixup = Fixup;
    Section.LastFixup = Fixup;
    ++Section.Header.PointerFixupArrayCount;
}

void AddMarshalling(file_builder *Builder, file_location const &Type, file_location const &Object, int32 Count)
{
    CheckPointer(Builder, LogCategory_FileWriting, TESSEL_NOTHING);
    CheckIndex(Type.SectionIndex, Builder->SectionCount, LogCategory_FileWriting, TESSEL_NOTHING);
    CheckIndex(Object.SectionIndex, Builder->SectionCount, LogCategory_FileWriting, TESSEL_NOTHING);

    file_builder_marshalling *Marshalling = (file_builder_marshalling *)NewStackUnit(Builder->MarshallingAllocator, 0);
    if (!Marshalling) {
        Builder->Healthy = false;
        return;
    }
    Marshalling->Count = Count;
    Marshalling->Type = Type;
    Marshalling->Object = Object;
    Marshalling->Next = 0;

    file_builder_section &Section = Builder->Sections[Object.SectionIndex];
    if (Section.LastMarshalling)
        Section.LastMarshalling->Next = Marshalling;
    else
        Section.FirstMarshalling = Marshalling;
    Section.LastMarshalling = Marshalling;
    ++Section.Header.MixedMarshallingFixupArrayCount;
}

void SetFileRoots(file_builder *Builder, file_location const &TypeLocation, file_location const &ObjectLocation)
{
    CheckPointer(Builder, LogCategory_FileWriting, TESSEL_NOTHING);
    Builder->RootType = TypeLocation;
    Builder->RootObject = ObjectLocation;
}

// ---------------------------------------------------------------------------
// Ending.

// A location as an offset in the section's expanded data.
static bool FlattenLocation(file_builder const &Builder, file_location const &Location, file_section_reference *Result)
{
    if (Location.SectionIndex < 0 || Location.SectionIndex >= Builder.SectionCount || Location.StreamIndex < 0 ||
        Location.StreamIndex >= StreamCount) {
        TesselError(LogCategory_FileWriting, "Location (%d, %d, %d) is outside the file", Location.SectionIndex,
                    Location.StreamIndex, Location.Offset);
        return false;
    }
    file_section_header const &Header = Builder.Sections[Location.SectionIndex].Header;
    uint32 Base = 0;
    if (Location.StreamIndex == Stream16Bit) Base = Header.First16Bit;
    if (Location.StreamIndex == Stream8Bit) Base = Header.First8Bit;
    Result->SectionIndex = (uint32)Location.SectionIndex;
    Result->Offset = Base + Location.Offset;
    return true;
}

// Pointer slots hold the source program's addresses; they are stored as zero
// so that equal inputs give equal files. A stream is read back through a
// reader that clears the slots of its fixups on the way.
struct slot_zeroing_reader
{
    file_reader Base;
    file_reader *Inner;
    uint32 *Slots; // sorted offsets of 8-byte slots in the stream
    uint32 SlotCount;
};

static void CloseSlotZeroingReader(file_reader *Base)
{
    slot_zeroing_reader *Reader = (slot_zeroing_reader *)Base;
    CloseFileReader(Reader->Inner);
    Reader->Inner = 0;
}

static bool GetSlotZeroingReaderSize(file_reader *Base, int32 *Size)
{
    return GetReaderSize(((slot_zeroing_reader *)Base)->Inner, Size);
}

static int32 ReadSlotZeroingReader(file_reader *Base, int32 Position, int32 Size, void *Buffer)
{
    slot_zeroing_reader *Reader = (slot_zeroing_reader *)Base;
    int32 Read = ReadAtMost(Reader->Inner, Position, Size, Buffer);
    if (Read <= 0) return Read;
    uint32 Start = (uint32)Position, End = (uint32)Position + (uint32)Read;
    // First slot that ends after Start.
    uint32 Low = 0, High = Reader->SlotCount;
    while (Low < High) {
        uint32 Middle = Low + (High - Low) / 2;
        if (Reader->Slots[Middle] + 8 <= Start)
            Low = Middle + 1;
        else
            High = Middle;
    }
    for (uint32 Index = Low; Index < Reader->SlotCount && Reader->Slots[Index] < End; ++Index) {
        uint32 From = Reader->Slots[Index] > Start ? Reader->Slots[Index] : Start;
        uint32 To = Reader->Slots[Index] + 8 < End ? Reader->Slots[Index] + 8 : End;
        memset((uint8 *)Buffer + (From - Start), 0, To - From);
    }
    return Read;
}

static int CompareSlots(void const *A, void const *B)
{
    uint32 SlotA = *(uint32 const *)A, SlotB = *(uint32 const *)B;
    return SlotA < SlotB ? -1 : (SlotA > SlotB ? 1 : 0);
}

// Opens a stream's temporary file for reading with its pointer slots
// cleared. Reader->Slots must be freed by the caller (also on failure).
static bool OpenStreamForReading(file_builder &Builder, int32 SectionIndex, int32 StreamIndex,
                                 slot_zeroing_reader *Reader)
{
    file_builder_section &Section = Builder.Sections[SectionIndex];
    memset(Reader, 0, sizeof(*Reader));
    uint32 Count = 0;
    for (file_builder_fixup *Fixup = Section.FirstFixup; Fixup; Fixup = Fixup->Next) {
        Count += (Fixup->From.StreamIndex == StreamIndex);
    }
    if (Count) {
        Reader->Slots = TesselAllocateArray(uint32, Count);
        if (!Reader->Slots) return false;
        for (file_builder_fixup *Fixup = Section.FirstFixup; Fixup; Fixup = Fixup->Next) {
            if (Fixup->From.StreamIndex != StreamIndex) continue;
            if ((uint64)Fixup->From.Offset + 8 > Section.StreamSize[StreamIndex]) {
                TesselError(LogCategory_FileWriting, "Pointer fixup at %d lies outside section %d stream %d",
                            Fixup->From.Offset, SectionIndex, StreamIndex);
                return false;
            }
            Reader->Slots[Reader->SlotCount++] = Fixup->From.Offset;
        }
        qsort(Reader->Slots, Reader->SlotCount, sizeof(uint32), CompareSlots);
    }

    char Name[TemporaryNameSize];
    GetStreamFileName(Builder, SectionIndex, StreamIndex, Name);
    Reader->Inner = CreatePlatformFileReader(Name);
    if (!Reader->Inner) {
        TesselError(LogCategory_FileWriting, "Unable to reopen temporary file %s", Name);
        return false;
    }
    return InitializeFileReader(Reader->Base, CloseSlotZeroingReader, ReadSlotZeroingReader, GetSlotZeroingReaderSize);
}

static void CloseStreamForReading(slot_zeroing_reader *Reader)
{
    if (Reader->Inner) CloseFileReader(Reader->Inner);
    if (Reader->Slots) TesselFree(Reader->Slots);
    memset(Reader, 0, sizeof(*Reader));
}

// The three streams of a stored section, slots cleared, to Writer.
static bool CopySectionStreams(file_builder &Builder, int32 SectionIndex, file_writer *Writer)
{
    file_builder_section &Section = Builder.Sections[SectionIndex];
    bool Result = true;
    for (int32 StreamIndex = 0; Result && StreamIndex < StreamCount; ++StreamIndex) {
        if (Section.StreamSize[StreamIndex] == 0) continue;
        slot_zeroing_reader Reader;
        int32 Copied = 0;
        Result = OpenStreamForReading(Builder, SectionIndex, StreamIndex, &Reader) &&
                 CopyReaderToWriter(Writer, &Reader.Base, &Copied) && (uint32)Copied == Section.StreamSize[StreamIndex];
        CloseStreamForReading(&Reader);
    }
    if (!Result) TesselError(LogCategory_FileWriting, "Unable to copy section %d", SectionIndex);
    return Result;
}

static void CountCodedBytes(void *Data, uint32 Bytes)
{
    ((std::atomic<uint64> *)Data)->fetch_add(Bytes, std::memory_order_relaxed);
}

// Codes the three streams, in order, into one Trove1 output, adding the
// bytes coded to BytesCoded as it goes.
static bool CompressSectionStreams(file_builder &Builder, int32 SectionIndex, file_writer *Writer,
                                   std::atomic<uint64> *BytesCoded)
{
    file_builder_section &Section = Builder.Sections[SectionIndex];
    file_compressor *Compressor =
        BeginFileCompression(Section.Header.ExpandedDataSize, StreamCount, (int32)Section.Header.Format, false, Writer);
    if (!Compressor) {
        TesselError(LogCategory_FileWriting, "Unable to begin compression of section %d", SectionIndex);
        return false;
    }
    if (BytesCoded) SetFileCompressionProgress(Compressor, CountCodedBytes, BytesCoded);
    bool Result = true;
    for (int32 StreamIndex = 0; Result && StreamIndex < StreamCount; ++StreamIndex) {
        slot_zeroing_reader Reader;
        Result = OpenStreamForReading(Builder, SectionIndex, StreamIndex, &Reader) &&
                 CompressContentsOfReader(Compressor, (int32)Section.StreamSize[StreamIndex], &Reader.Base);
        CloseStreamForReading(&Reader);
    }
    uint32 StoredSize = 0;
    Result = EndFileCompression(Compressor, &StoredSize) && Result;
    Section.Header.DataSize = StoredSize;
    if (!Result) TesselError(LogCategory_FileWriting, "Unable to compress section %d", SectionIndex);
    return Result;
}

// Compressed sections are coded into the section's temporary file, whose
// size becomes DataSize; stored sections are copied straight into the
// output later.
static bool StoreSection(file_builder &Builder, int32 SectionIndex, std::atomic<uint64> *BytesCoded)
{
    file_builder_section &Section = Builder.Sections[SectionIndex];
    file_section_header &Header = Section.Header;
    if (Header.ExpandedDataSize == 0) {
        Header.DataSize = 0;
        return true;
    }
    if (Header.Format == NoCompression) {
        Header.DataSize = Header.ExpandedDataSize;
        return true;
    }
    if (Header.Format != Trove1Compression) {
        TesselError(LogCategory_Compression, "Unrecognized compression type %d", Header.Format);
        return false;
    }

    char Name[TemporaryNameSize];
    GetCompressedFileName(Builder, SectionIndex, Name);
    file_writer *Writer = CreateExclusiveFileWriter(Name);
    if (!Writer) {
        TesselError(LogCategory_FileWriting, "Unable to create temporary file %s", Name);
        return false;
    }
    bool Result = CompressSectionStreams(Builder, SectionIndex, Writer, BytesCoded);
    DeleteFileWriter(Writer);
    return Result;
}

static bool IsCodedSection(file_builder_section const &Section, uint64 ExpandedSize)
{
    return Section.Header.Format == Trove1Compression && ExpandedSize != 0;
}

static uint64 GetSectionSize(file_builder_section const &Section)
{
    return (uint64)Section.StreamSize[0] + Section.StreamSize[1] + Section.StreamSize[2];
}

void SetFileBuilderProgress(file_builder *Builder, void (*Callback)(void *Data, int32 Done, int32 Total), void *Data)
{
    CheckPointer(Builder, LogCategory_FileWriting, );
    Builder->PackagingProgress = Callback;
    Builder->PackagingProgressData = Data;
}

static uint64 GetCodedBytes(file_builder const &Builder)
{
    uint64 Bytes = 0;
    for (int32 SectionIndex = 0; SectionIndex < Builder.SectionCount; ++SectionIndex) {
        uint64 Size = GetSectionSize(Builder.Sections[SectionIndex]);
        if (IsCodedSection(Builder.Sections[SectionIndex], Size)) Bytes += Size;
    }
    return Bytes;
}

static int32 GetPackagingSteps(uint64 CodedBytes)
{
    return (int32)((CodedBytes + FileBuilderPackagingStepBytes - 1) / FileBuilderPackagingStepBytes);
}

int32 GetFileBuilderPackagingSteps(file_builder const *Builder)
{
    CheckPointer(Builder, LogCategory_FileWriting, 0);
    return GetPackagingSteps(GetCodedBytes(*Builder));
}

struct section_storing
{
    file_builder *Builder;
    bool8 *Results;
    std::atomic<uint64> BytesCoded;
    uint64 BytesTotal;
    int32 Steps;
};

static void StoreSectionJob(void *Data, int32 SectionIndex)
{
    section_storing *Storing = (section_storing *)Data;
    Storing->Results[SectionIndex] = StoreSection(*Storing->Builder, SectionIndex, &Storing->BytesCoded);
}

static void ReportPackaging(void *Data)
{
    section_storing *Storing = (section_storing *)Data;
    file_builder &Builder = *Storing->Builder;
    if (!Builder.PackagingProgress || Storing->BytesTotal == 0) return;
    uint64 Done = Storing->BytesCoded.load(std::memory_order_relaxed);
    if (Done > Storing->BytesTotal) Done = Storing->BytesTotal;
    Builder.PackagingProgress(Builder.PackagingProgressData,
                              (int32)(Done * (uint64)Storing->Steps / Storing->BytesTotal), Storing->Steps);
}

static int CompareJobs(void const *A, void const *B)
{
    uint64 const *JobA = (uint64 const *)A, *JobB = (uint64 const *)B;
    return JobA[0] > JobB[0] ? -1 : (JobA[0] < JobB[0] ? 1 : (JobA[1] < JobB[1] ? -1 : 1));
}

// Stores every section: the coded ones on worker threads, largest first.
static bool StoreSections(file_builder &Builder)
{
    int32 const SectionCount = Builder.SectionCount;
    bool8 *Results = TesselAllocateArray(bool8, SectionCount);
    uint64 *Jobs = TesselAllocateArray(uint64, 2 * SectionCount);
    int32 *Order = TesselAllocateArray(int32, SectionCount);
    bool Result = Results && Jobs && Order;
    int32 JobCount = 0;
    for (int32 SectionIndex = 0; Result && SectionIndex < SectionCount; ++SectionIndex) {
        file_builder_section const &Section = Builder.Sections[SectionIndex];
        if (IsCodedSection(Section, Section.Header.ExpandedDataSize)) {
            Jobs[2 * JobCount] = Section.Header.ExpandedDataSize;
            Jobs[2 * JobCount + 1] = (uint64)SectionIndex;
            ++JobCount;
        } else {
            Result = StoreSection(Builder, SectionIndex, 0);
        }
    }
    if (Result) {
        qsort(Jobs, (size_t)JobCount, 2 * sizeof(uint64), CompareJobs);
        for (int32 Job = 0; Job < JobCount; ++Job) Order[Job] = (int32)Jobs[2 * Job + 1];
        section_storing Storing;
        Storing.Builder = &Builder;
        Storing.Results = Results;
        Storing.BytesCoded.store(0);
        Storing.BytesTotal = GetCodedBytes(Builder);
        Storing.Steps = GetPackagingSteps(Storing.BytesTotal);
        RunJobs(JobCount, Order, StoreSectionJob, &Storing, ReportPackaging, &Storing);
        for (int32 Job = 0; Job < JobCount; ++Job) Result = Result && Results[Order[Job]];
    }
    if (Results) TesselFree(Results);
    if (Jobs) TesselFree(Jobs);
    if (Order) TesselFree(Order);
    return Result;
}

static uint32 AlignUp4(uint32 Value)
{
    return (Value + 3u) & ~3u;
}

// Records go out in blocks rather than one write each.
struct record_batch
{
    file_writer *Writer;
    uint8 *Buffer;
    uint32 Fill;
};

static bool AddRecord(record_batch &Batch, uint32 Size, void const *Record)
{
    if (Batch.Fill + Size > (uint32)FileCopyBlockSize) {
        if (!Write(Batch.Writer, (int32)Batch.Fill, Batch.Buffer)) return false;
        Batch.Fill = 0;
    }
    memcpy(Batch.Buffer + Batch.Fill, Record, Size);
    Batch.Fill += Size;
    return true;
}

static bool WriteFixups(file_builder const &Builder, file_builder_section const &Section, record_batch &Batch)
{
    bool Result = true;
    for (file_builder_fixup *Fixup = Section.FirstFixup; Result && Fixup; Fixup = Fixup->Next) {
        file_pointer_fixup Record;
        file_section_reference From;
        Result = FlattenLocation(Builder, Fixup->From, &From) && FlattenLocation(Builder, Fixup->To, &Record.To);
        Record.FromOffset = From.Offset;
        Result = Result && AddRecord(Batch, sizeof(Record), &Record);
    }
    return Result;
}

static bool WriteMarshallings(file_builder const &Builder, file_builder_section const &Section, record_batch &Batch)
{
    bool Result = true;
    for (file_builder_marshalling *Marshalling = Section.FirstMarshalling; Result && Marshalling;
         Marshalling = Marshalling->Next) {
        file_mixed_marshalling_fixup Record;
        file_section_reference Object;
        Result = FlattenLocation(Builder, Marshalling->Object, &Object) &&
                 FlattenLocation(Builder, Marshalling->Type, &Record.Type);
        Record.Count = (uint32)Marshalling->Count;
        Record.Offset = Object.Offset;
        Result = Result && AddRecord(Batch, sizeof(Record), &Record);
    }
    return Result;
}

// Pads the writer to a multiple of 4 counted from Start.
static bool PadFrom(file_writer *Writer, int32 Start)
{
    int32 Position = GetWriterPosition(Writer) - Start;
    uint32 Padding = AlignUp4((uint32)Position) - (uint32)Position;
    return Padding == 0 || WriteZeros(Writer, Padding);
}

static bool LayOutFile(file_builder &Builder, file_writer *Writer)
{
    int32 const SectionCount = Builder.SectionCount;
    bool Result = Builder.Healthy;
    if (!Result) TesselError(LogCategory_FileWriting, "A write to the file's streams failed earlier");

    for (int32 SectionIndex = 0; Result && SectionIndex < SectionCount; ++SectionIndex) {
        file_builder_section const &Section = Builder.Sections[SectionIndex];
        for (file_builder_fixup *Fixup = Section.FirstFixup; Result && Fixup; Fixup = Fixup->Next) {
            if ((uint64)Fixup->From.Offset + 8 > Section.StreamSize[Fixup->From.StreamIndex]) {
                TesselError(LogCategory_FileWriting, "Pointer fixup at %d lies outside section %d stream %d",
                            Fixup->From.Offset, SectionIndex, Fixup->From.StreamIndex);
                Result = false;
            }
        }
    }
    Result = Result && StoreSections(Builder);
    if (!Result) return false;

    // Offsets of everything after the section table.
    uint32 Position = AlignUp4(GetTotalHeaderSize(SectionCount));
    for (int32 SectionIndex = 0; SectionIndex < SectionCount; ++SectionIndex) {
        file_section_header &Header = Builder.Sections[SectionIndex].Header;
        Header.DataOffset = Position;
        Position = AlignUp4(Position + Header.DataSize);
    }
    for (int32 SectionIndex = 0; SectionIndex < SectionCount; ++SectionIndex) {
        file_section_header &Header = Builder.Sections[SectionIndex].Header;
        Header.PointerFixupArrayOffset = Position;
        Position = AlignUp4(Position + Header.PointerFixupArrayCount * FilePointerFixupSize);
    }
    for (int32 SectionIndex = 0; SectionIndex < SectionCount; ++SectionIndex) {
        file_section_header &Header = Builder.Sections[SectionIndex].Header;
        Header.MixedMarshallingFixupArrayOffset = Position;
        Position = AlignUp4(Position + Header.MixedMarshallingFixupArrayCount * FileMixedMarshallingFixupSize);
    }

    int32 Start = GetWriterPosition(Writer);
    Result = WriteZeros(Writer, FileMagicBlockSize + FileHeaderSize);
    if (!Result) return false;
    BeginWriterCRC(Writer);

    for (int32 SectionIndex = 0; Result && SectionIndex < SectionCount; ++SectionIndex) {
        Result = Write(Writer, FileSectionHeaderSize, &Builder.Sections[SectionIndex].Header);
    }
    char Name[TemporaryNameSize];
    for (int32 SectionIndex = 0; Result && SectionIndex < SectionCount; ++SectionIndex) {
        Result = PadFrom(Writer, Start);
        if (Result && Builder.Sections[SectionIndex].Header.Format == NoCompression) {
            Result = CopySectionStreams(Builder, SectionIndex, Writer);
        } else if (Result && Builder.Sections[SectionIndex].Header.DataSize != 0) {
            GetCompressedFileName(Builder, SectionIndex, Name);
            int32 Copied = 0;
            Result = ConcatenateFile(Writer, Name, &Copied) &&
                     (uint32)Copied == Builder.Sections[SectionIndex].Header.DataSize;
        }
    }
    // Every record is 12 or 16 bytes, so the arrays stay on 4 bytes without
    // padding between them.
    record_batch Batch = {Writer, (uint8 *)TesselAllocate(FileCopyBlockSize), 0};
    Result = Result && Batch.Buffer && PadFrom(Writer, Start);
    for (int32 SectionIndex = 0; Result && SectionIndex < SectionCount; ++SectionIndex) {
        Result = WriteFixups(Builder, Builder.Sections[SectionIndex], Batch);
    }
    for (int32 SectionIndex = 0; Result && SectionIndex < SectionCount; ++SectionIndex) {
        Result = WriteMarshallings(Builder, Builder.Sections[SectionIndex], Batch);
    }
    Result = Result && (Batch.Fill == 0 || Write(Writer, (int32)Batch.Fill, Batch.Buffer));
    if (Batch.Buffer) TesselFree(Batch.Buffer);
    Result = Result && PadFrom(Writer, Start);
    uint32 CRC = EndWriterCRC(Writer);
    if (!Result) return false;

    int32 End = GetWriterPosition(Writer);
    if ((uint32)(End - Start) != Position) {
        TesselError(LogCategory_FileWriting, "File size %d differs from its layout (%d)", End - Start, Position);
        return false;
    }

    file_magic_block Magic = GetNativeFileMagicBlock();
    Magic.TotalHeaderSize = GetTotalHeaderSize(SectionCount);
    Magic.HeaderFormat = 0;

    file_header Header;
    memset(&Header, 0, sizeof(Header));
    Header.Version = TesselFileFormatVersion;
    Header.TotalSize = (uint32)(End - Start);
    Header.CRC = CRC;
    Header.SectionArrayOffset = FileSectionArrayOffset;
    Header.SectionCount = (uint32)SectionCount;
    Result = FlattenLocation(Builder, Builder.RootType, &Header.RootObjectTypeDefinition) &&
             FlattenLocation(Builder, Builder.RootObject, &Header.RootObject);
    Header.TypeTag = Builder.FileTypeTag;
    memcpy(Header.ExtraTags, Builder.ExtraTags, sizeof(Header.ExtraTags));
    Header.StringDatabaseCRC = Builder.StringDatabaseCRC;

    Result = Result && SeekWriterFromStart(Writer, Start) == Start && Write(Writer, sizeof(Magic), &Magic) &&
             Write(Writer, sizeof(Header), &Header) && SeekWriterFromStart(Writer, End) == End;
    return Result;
}

// Another platform: the file is built in this platform's layout in memory,
// its sections left uncompressed, and converted from there; the conversion
// compresses each section with the format it was given.
static bool LayOutAndConvertFile(file_builder &Builder, file_writer *Writer)
{
    file_writer *Native = CreateMemoryFileWriter(FileCopyBlockSize);
    uint32 *Formats = TesselAllocateArray(uint32, Builder.SectionCount + 1);
    if (!Native || !Formats) {
        DeleteFileWriter(Native);
        if (Formats) TesselFree(Formats);
        return false;
    }
    for (int32 SectionIndex = 0; SectionIndex < Builder.SectionCount; ++SectionIndex) {
        Formats[SectionIndex] = Builder.Sections[SectionIndex].Header.Format;
        Builder.Sections[SectionIndex].Header.Format = NoCompression;
    }
    uint8 *Buffer = 0;
    int32 Size = 0;
    bool Result = LayOutFile(Builder, Native);
    if (Result && !StealMemoryWriterBuffer(Native, &Buffer, &Size)) {
        TesselError(LogCategory_FileWriting, "Failed to steal memorywriter buffer");
        Result = false;
    }
    DeleteFileWriter(Native);
    file_reader *Reader = Result ? CreateMemoryFileReader(Size, Buffer) : 0;
    // A converted file keeps its type tree whatever ExcludeTypeTreeInConversion says.
    Result = Reader && PlatformConvertReaderToWriterWithFormats(Reader, Writer, Builder.PlatformMagicValue,
                                                                Builder.SectionCount, Formats);
    if (Reader) CloseFileReader(Reader);
    if (Buffer) FreeMemoryWriterBuffer(Buffer);
    TesselFree(Formats);
    return Result;
}

bool EndFileToWriter(file_builder *Builder, file_writer *Writer)
{
    CheckPointer(Builder, LogCategory_FileWriting, false);
    if (!Writer) {
        TesselError(LogCategory_FileWriting, "%s is not allowed to be NULL", "TargetWriter");
        AbortFile(Builder);
        return false;
    }

    for (int32 SectionIndex = 0; SectionIndex < Builder->SectionCount; ++SectionIndex) {
        file_builder_section &Section = Builder->Sections[SectionIndex];
        for (int32 StreamIndex = 0; Builder->Healthy && StreamIndex < StreamCount; ++StreamIndex) {
            if (!FlushStream(Section, StreamIndex)) {
                TesselError(LogCategory_FileWriting, "Unable to write section %d stream %d", SectionIndex, StreamIndex);
                Builder->Healthy = false;
            }
        }
        Section.Header.First16Bit = Section.StreamSize[Stream32Bit];
        Section.Header.First8Bit = Section.Header.First16Bit + Section.StreamSize[Stream16Bit];
        Section.Header.ExpandedDataSize = Section.Header.First8Bit + Section.StreamSize[Stream8Bit];
        if (Section.Header.ExpandedDataSize == 0) {
            Section.Header.First16Bit = 0;
            Section.Header.First8Bit = 0;
        }
    }
    CloseStreamWriters(*Builder);

    bool Result = false;
    if (!IsNativeFileMagicValue(Builder->PlatformMagicValue)) {
        Result = LayOutAndConvertFile(*Builder, Writer);
    } else {
        Result = LayOutFile(*Builder, Writer);
    }
    FreeFileBuilder(Builder);
    return Result;
}

bool EndFile(file_builder *Builder, char const *FileName)
{
    CheckPointer(Builder, LogCategory_FileWriting, false);
    if (!FileName) {
        TesselError(LogCategory_FileWriting, "%s is not allowed to be NULL", "FileName");
        AbortFile(Builder);
        return false;
    }
    // The file is built under a temporary name beside FileName and put in
    // place only when whole: a failure at any point leaves what was at
    // FileName untouched, and nothing else behind.
    file_writer *Writer = CreateOutputFileWriter(FileName);
    if (!Writer) {
        TesselError(LogCategory_FileWriting, "Unable to open %s for writing", FileName);
        AbortFile(Builder);
        return false;
    }
    bool Result = EndFileToWriter(Builder, Writer);
    if (Result) return CommitOutputFileWriter(Writer);
    DeleteFileWriter(Writer);
    return false;
}

void AbortFile(file_builder *Builder)
{
    if (!Builder) return;
    FreeFileBuilder(Builder);
}

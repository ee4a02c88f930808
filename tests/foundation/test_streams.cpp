// Memory and disk streams, CRC-32, temporary directory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "foundation/tessel_file_io.h"
#include "foundation/tessel_memory.h"
#include "platform/tessel_platform.h"
#include "support/test_log_capture.h"

TEST(CRC32, KnownValues)
{
    EXPECT_EQ(ComputeCRC32(0, ""), 0u);
    EXPECT_EQ(ComputeCRC32(9, "123456789"), 0xCBF43926u);
    char const *Fox = "The quick brown fox jumps over the lazy dog";
    EXPECT_EQ(ComputeCRC32((int32)strlen(Fox), Fox), 0x414FA339u);
    // Incremental updates equal one pass.
    uint32 CRC = UpdateCRC32(BeginCRC32(), 4, "1234");
    EXPECT_EQ(EndCRC32(UpdateCRC32(CRC, 5, "56789")), 0xCBF43926u);
}

TEST(MemoryWriter, SeeksGrowsStealsAndComputesCRC)
{
    int32 Before = GetLiveBlockCount();
    file_writer *Writer = CreateMemoryFileWriter(64);
    ASSERT_NE(Writer, nullptr);
    BeginWriterCRC(Writer);
    EXPECT_EQ(EndWriterCRC(Writer), 0u); // nothing written

    EXPECT_EQ(SeekWriterFromStart(Writer, 1000), 1000);
    ASSERT_TRUE(Write(Writer, 1, "z"));
    BeginWriterCRC(Writer);
    SeekWriterFromStart(Writer, 0);
    ASSERT_TRUE(Write(Writer, 9, "123456789"));
    EXPECT_EQ(EndWriterCRC(Writer), 0xCBF43926u);
    EXPECT_EQ(SeekWriterFromEnd(Writer, 1), 1000); // from the end counts backward
    {
        log_capture Log;
        EXPECT_EQ(SeekWriterFromCurrentPosition(Writer, -5000), 0);
        EXPECT_TRUE(Log.Contains("Attempting to seek before beginning of a memory stream"));
    }

    uint8 *Buffer = nullptr;
    int32 Size = 0;
    ASSERT_TRUE(StealMemoryWriterBuffer(Writer, &Buffer, &Size));
    EXPECT_EQ(Size, 1001);
    EXPECT_EQ(Buffer[1000], 'z');
    EXPECT_EQ(memcmp(Buffer, "123456789", 9), 0);
    uint8 *Again = (uint8 *)1;
    EXPECT_FALSE(StealMemoryWriterBuffer(Writer, &Again, &Size));
    EXPECT_EQ(Again, nullptr);
    DeleteFileWriter(Writer);
    FreeMemoryWriterBuffer(Buffer);

    file_writer *Empty = CreateMemoryFileWriter(16);
    ASSERT_TRUE(StealMemoryWriterBuffer(Empty, &Buffer, &Size));
    EXPECT_EQ(Buffer, nullptr);
    DeleteFileWriter(Empty);
    EXPECT_EQ(GetLiveBlockCount(), Before);
}

TEST(MemoryReader, BoundsAndShortReads)
{
    log_capture Log;
    char const Data[] = "abcdef";
    file_reader *Reader = CreateMemoryFileReader(6, Data);
    ASSERT_NE(Reader, nullptr);
    char Buffer[8] = {};
    EXPECT_EQ(ReadAtMost(Reader, 4, 8, Buffer), 2);
    EXPECT_EQ(ReadAtMost(Reader, 6, 0, Buffer), 0);
    EXPECT_EQ(ReadAtMost(Reader, 7, 1, Buffer), 0);
    EXPECT_TRUE(Log.Contains("FilePosition 7 is out of range [0, 6]"));
    CloseFileReader(Reader);
    EXPECT_EQ(CreateMemoryFileReader(4, nullptr), nullptr);
}

TEST(DiskStreams, WriteReadAppendAndConcatenate)
{
    std::string Directory = std::string(GetTemporaryDirectory());
    std::string Path = Directory + "/tessel_stream_test_" + std::to_string(GetProcessIdentifier());
    std::string Copy = Path + ".copy";
    file_writer *Writer = CreatePlatformFileWriter(Path.c_str(), true);
    ASSERT_NE(Writer, nullptr);
    BeginWriterCRC(Writer);
    ASSERT_TRUE(Write(Writer, 5, "hello"));
    ASSERT_TRUE(WritePadding(Writer));
    EXPECT_EQ(GetWriterPosition(Writer), 8);
    EXPECT_EQ(EndWriterCRC(Writer), ComputeCRC32(8, "hello\0\0\0"));
    DeleteFileWriter(Writer);
    EXPECT_TRUE(AppendStringToFile(Path.c_str(), "line"));
    EXPECT_EQ(GetFileSize(Path.c_str()), 13);

    file_writer *CopyWriter = CreatePlatformFileWriter(Copy.c_str(), true);
    int32 Copied = 0;
    ASSERT_TRUE(ConcatenateFile(CopyWriter, Path.c_str(), &Copied));
    DeleteFileWriter(CopyWriter);
    EXPECT_EQ(Copied, 13);
    int64 Size = 0;
    uint8 *Bytes = ReadEntireFile(Copy.c_str(), &Size);
    ASSERT_NE(Bytes, nullptr);
    EXPECT_EQ(Size, 13);
    EXPECT_EQ(memcmp(Bytes + 8, "line\n", 5), 0);
    TesselFree(Bytes);

    EXPECT_TRUE(DeleteFile(Path.c_str()));
    EXPECT_TRUE(DeleteFile(Copy.c_str()));
    EXPECT_FALSE(FileExists(Path.c_str()));
    log_capture Log;
    EXPECT_EQ(CreatePlatformFileReader(Path.c_str()), nullptr);
    EXPECT_EQ(GetFileSize(Path.c_str()), 0);
    EXPECT_TRUE(Log.Contains("Unable to get file size for"));
}

TEST(Platform, UniqueCountersAndTemporaryDirectory)
{
    EXPECT_NE(NextUniqueCounter(), NextUniqueCounter());
    std::string Directory = GetTemporaryDirectory();
    EXPECT_FALSE(Directory.empty());
    EXPECT_NE(Directory.back(), '/');
    EXPECT_EQ(Directory.find('\\'), std::string::npos);
}

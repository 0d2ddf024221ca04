// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/serialize.hpp"
#include "support/records.hpp"

#include <gtest/gtest.h>

using namespace qandor::test;

namespace {

class SerializeTest : public testing::Test {
protected:
    Bytes written() const { return bytes_of(array.get()); }

    Owned<GArray> array{serialize_create_array()};
    guint indx = 0;
};

TEST_F(SerializeTest, IntegersAreLittleEndianAndReduced)
{
    serialize_8bit(array.get(), 0x1FF);
    serialize_16bit(array.get(), 0x71234);
    serialize_32bit(array.get(), 0x11223344);
    EXPECT_EQ(written(), (Bytes{0xFF, 0x34, 0x12, 0x44, 0x33, 0x22, 0x11}));
    EXPECT_EQ(deserialize_8bit(array.get(), &indx), 0xFFu);
    EXPECT_EQ(deserialize_16bit(array.get(), &indx), 0x1234u);
    EXPECT_EQ(deserialize_32bit(array.get(), &indx), 0x11223344u);
    EXPECT_EQ(indx, array->len);
}

TEST_F(SerializeTest, APointerIsItsLowHalfOnEveryMachine)
{
    serialize_pointer(array.get(), reinterpret_cast<gpointer>(0x1122334455667788));
    EXPECT_EQ(written(), (Bytes{0x88, 0x77, 0x66, 0x55}));
    EXPECT_EQ(deserialize_pointer(array.get(), &indx), reinterpret_cast<gpointer>(0x55667788));
}

TEST_F(SerializeTest, AnEmptyStringIsTwoZeroBytesAndReadsBackAsANewOne)
{
    serialize_string(array.get(), "");
    serialize_string(array.get(), "ab");
    EXPECT_EQ(written(), (Bytes{0, 0, 2, 0, 'a', 'b'}));
    Owned<gchar> first(deserialize_string(array.get(), &indx));
    Owned<gchar> second(deserialize_string(array.get(), &indx));
    EXPECT_STREQ(first.get(), "");
    EXPECT_STREQ(second.get(), "ab");
}

TEST_F(SerializeTest, ALongStringHasItsLengthReducedButAllItsBytes)
{
    std::string text(65537, 'x');
    serialize_string(array.get(), text.c_str());
    EXPECT_EQ(array->len, 2u + 65537u);
    EXPECT_EQ(deserialize_16bit(array.get(), &indx), 1u);
}

TEST_F(SerializeTest, ABlobHasNoLength)
{
    serialize_blob(array.get(), "abc", 3);
    EXPECT_EQ(written(), (Bytes{'a', 'b', 'c'}));
    std::unique_ptr<char, RecordDeleter> blob(
        static_cast<char *>(deserialize_blob(array.get(), &indx, 3)));
    EXPECT_EQ(std::string(blob.get(), 3), "abc");
}

void write_element(gconstpointer data, GArray *array)
{
    serialize_string(array, static_cast<const gchar *>(data));
}

gpointer read_element(GArray *array, guint *indx)
{
    return deserialize_string(array, indx);
}

gpointer refuse_to_read(GArray *, guint *)
{
    ADD_FAILURE() << "an element of an empty list was read";
    return nullptr;
}

TEST_F(SerializeTest, AnEmptyListIsFourZeroBytesAndReadsBackWithoutReadingAnElement)
{
    serialize_glist(array.get(), nullptr, write_element);
    EXPECT_EQ(written(), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(deserialize_glist(array.get(), &indx, refuse_to_read), nullptr);
}

TEST_F(SerializeTest, AListKeepsItsOrderAndALongOneIsReadInLinearTime)
{
    constexpr int count = 200000;
    GList *list = nullptr;
    for (int i = count; i-- > 0;)
        list = g_list_prepend(list, g_strdup_printf("%d", i));
    serialize_glist(array.get(), list, write_element);
    g_list_free_full(list, g_free);
    std::vector<std::string> read =
        take_strings(deserialize_glist(array.get(), &indx, read_element));
    ASSERT_EQ(read.size(), static_cast<std::size_t>(count));
    EXPECT_EQ(read.front(), "0");
    EXPECT_EQ(read.back(), "199999");
}

using SerializeDeathTest = SerializeTest;

TEST_F(SerializeDeathTest, BrokenPreconditionsEndTheProcessWithTheirCondition)
{
    EXPECT_DEATH(serialize_8bit(nullptr, 1), "serialize_8bit: assertion failed: .array != NULL");
    EXPECT_DEATH(serialize_blob(nullptr, "a", 1), "array != NULL");
    EXPECT_DEATH(serialize_string(array.get(), nullptr), "string != NULL");
    EXPECT_DEATH(serialize_glist(array.get(), nullptr, nullptr), "serializer != NULL");
    EXPECT_DEATH(deserialize_8bit(nullptr, &indx), "array != NULL");
    EXPECT_DEATH(deserialize_string(nullptr, &indx), "array != NULL");
    EXPECT_DEATH(deserialize_glist(array.get(), nullptr, read_element), "indx != NULL");
    EXPECT_DEATH(deserialize_glist(array.get(), &indx, nullptr), "deserializer != NULL");
}

TEST_F(SerializeDeathTest, AReadPastTheEndEndsTheProcess)
{
    serialize_8bit(array.get(), 5);
    serialize_16bit(array.get(), 0);
    EXPECT_DEATH(deserialize_32bit(array.get(), &indx), "array->len >= \\*indx \\+ size");
    EXPECT_DEATH(deserialize_string(array.get(), &indx), "array->len >= \\*indx \\+ length");
    EXPECT_DEATH(g_free(deserialize_blob(array.get(), &indx, 4)), "\\*indx \\+ size");
}

TEST_F(SerializeDeathTest, AnIndexOrALengthNearTheEndOfItsRangeDoesNotWrap)
{
    serialize_32bit(array.get(), 0);
    indx = G_MAXUINT32 - 1;
    EXPECT_DEATH(deserialize_8bit(array.get(), &indx), "\\*indx \\+ size");
    EXPECT_DEATH(deserialize_32bit(array.get(), &indx), "\\*indx \\+ size");
    indx = 1;
    EXPECT_DEATH(g_free(deserialize_blob(array.get(), &indx, G_MAXUINT32)), "\\*indx \\+ size");
}

TEST(Serialize, ATextIsReadWithAllItsBytesAnEmbeddedNulIncluded)
{
    const guint8 bytes[] = {3, 0, 'a', 0, 'b'};
    Owned<GArray> array(serialize_create_array());
    serialize_blob(array.get(), bytes, sizeof bytes);
    guint indx = 0;
    Owned<gchar> text(deserialize_string(array.get(), &indx));
    EXPECT_EQ(std::string(text.get(), 4), std::string("a\0b\0", 4));
    EXPECT_EQ(indx, sizeof bytes);
}

TEST(SerializeBufferDeathTest, ABufferThatCannotTakeARecordEndsTheProcess)
{
    Owned<GArray> array(serialize_create_array());
    serialize_8bit(array.get(), 1);
    std::size_t too_many = G_MAXUINT;
    EXPECT_DEATH(qandor::grow(array.get(), too_many), "array->len . size <= G_MAXUINT");
}

} // namespace

#include "station/plan/UnitSerial.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace station::plan {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class UnitSerialTest : public testing::Test
{
protected:
    SerialRecord record;
    SerialsAtPorts ports;
    UnitSerial serial{record, ports, "/dev/a"};
};

TEST_F(UnitSerialTest, UnitThatHoldsWhatTheOperatorGaveIsTheOneThatWasMeant)
{
    serial.give("HU7");
    serial.tell("HU7");

    EXPECT_THAT(serial.mismatch(), IsEmpty());
    EXPECT_EQ(serial.known(), "HU7");
}

TEST_F(UnitSerialTest, OtherSerialIsAMismatchWhicheverIsKnownFirst)
{
    UnitSerial toldFirst(record, ports, "/dev/b");
    serial.give("HU8");
    serial.tell("HU7");
    toldFirst.tell("HU7");
    toldFirst.give("HU8");

    EXPECT_EQ(serial.mismatch(), "the unit holds serial HU7, expected HU8, which the operator gave");
    EXPECT_EQ(toldFirst.mismatch(), serial.mismatch());
    EXPECT_EQ(serial.known(), "HU7") << "the run is that of the unit";
}

TEST_F(UnitSerialTest, MismatchStaysWhateverIsSaidLater)
{
    serial.give("HU8");
    serial.tell("HU7");
    serial.tell("HU8");

    EXPECT_THAT(serial.mismatch(), HasSubstr("holds serial HU7"));
}

TEST_F(UnitSerialTest, OperatorWhoGivesTwoSerialsContradictsHimself)
{
    serial.give("HU7");
    serial.give("HU8");

    EXPECT_EQ(serial.mismatch(), "the operator gave two serials, HU7 and HU8");
}

TEST_F(UnitSerialTest, SerialThatThePlanWritesIsNotCompared)
{
    serial.give("HU8");
    serial.write();
    serial.tell("HU9");

    EXPECT_THAT(serial.mismatch(), IsEmpty());
    EXPECT_EQ(serial.known(), "HU9");
}

TEST_F(UnitSerialTest, SerialThatWasReadBeforeThePlanWroteIsComparedWithALaterAnswer)
{
    serial.tell("HU7");
    serial.write();
    serial.tell("HU9");
    serial.give("HU8");

    EXPECT_THAT(serial.mismatch(), HasSubstr("holds serial HU7, expected HU8"));
}

TEST_F(UnitSerialTest, PlaceholdersMeanNone)
{
    UnitSerial other(record, ports, "/dev/b");
    serial.give("HU7");
    for (const char* placeholder : {"", "00000000", "\xFF", "\xFF\xFF\xFF\xFF"}) {
        serial.tell(placeholder);
        other.tell(placeholder);
        other.give(placeholder);
    }

    EXPECT_THAT(serial.mismatch(), IsEmpty());
    EXPECT_EQ(serial.known(), "HU7");
    EXPECT_EQ(other.known(), "");
    EXPECT_THAT(ports.clashOf("/dev/a"), IsEmpty());
}

TEST_F(UnitSerialTest, PlaceholdersAreThoseOfTheStation)
{
    record.placeholders = {"NONE"};
    serial.give("HU7");
    serial.tell("NONE");
    EXPECT_THAT(serial.mismatch(), IsEmpty());

    serial.tell("00000000");
    EXPECT_THAT(serial.mismatch(), HasSubstr("holds serial 00000000"));
}

TEST_F(UnitSerialTest, UnitsWithOneSerialClashAndOthersDoNot)
{
    UnitSerial same(record, ports, "/dev/b");
    UnitSerial other(record, ports, "/dev/c");
    serial.tell("HU7");
    serial.tell("HU7");
    EXPECT_THAT(ports.clashOf("/dev/a"), IsEmpty()) << "one port may tell its serial twice";

    same.tell("HU7");
    other.tell("HU8");

    EXPECT_EQ(ports.clashOf("/dev/a"), "the unit at /dev/b holds the same serial HU7");
    EXPECT_EQ(ports.clashOf("/dev/b"), "the unit at /dev/a holds the same serial HU7");
    EXPECT_THAT(ports.clashOf("/dev/c"), IsEmpty());
}

TEST_F(UnitSerialTest, WhatAUnitTellsSteersNoTerminal)
{
    serial.give("HU7");
    serial.tell("\x1b[2J");

    EXPECT_THAT(serial.mismatch(), testing::Not(HasSubstr("\x1b")));
}

}  // namespace
}  // namespace station::plan

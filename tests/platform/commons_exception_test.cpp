#include <Commons/Exception.h>

#include <gtest/gtest.h>

using namespace WrtDeviceApis::Commons;

TEST(CommonsExceptionTest, CodesKeepTheirNumbers) {
    EXPECT_EQ(ExceptionCodes::None, 0);
    EXPECT_EQ(ExceptionCodes::InvalidArgumentException, 2);
    EXPECT_EQ(ExceptionCodes::PlatformException, 5);
    EXPECT_EQ(ExceptionCodes::UnknownException, 6);
    EXPECT_EQ(ExceptionCodes::PlatformWrongStateException, 9);
    EXPECT_EQ(ExceptionCodes::NotFoundException, 18);
}

TEST(CommonsExceptionTest, EachClassCarriesItsCode) {
    EXPECT_EQ(InvalidArgumentException("f", "g", 1).getCode(),
              ExceptionCodes::InvalidArgumentException);
    EXPECT_EQ(ConversionException("f", "g", 1).getCode(), ExceptionCodes::ConversionException);
    EXPECT_EQ(NullPointerException("f", "g", 1).getCode(), ExceptionCodes::NullPointerException);
    EXPECT_EQ(PlatformException("f", "g", 1).getCode(), ExceptionCodes::PlatformException);
    EXPECT_EQ(PlatformWrongStateException("f", "g", 1).getCode(),
              ExceptionCodes::PlatformWrongStateException);
    EXPECT_EQ(NotFoundException("f", "g", 1).getCode(), ExceptionCodes::NotFoundException);
    EXPECT_EQ(Exception("f", "g", 1).getCode(), ExceptionCodes::UnknownException);
}

TEST(CommonsExceptionTest, ThrowMsgStreamsTheMessageAndRecordsThePlace) {
    const std::string id = "KvManager.unknown";
    try {
        ThrowMsg(InvalidArgumentException, "Function with id " << id << "not found");
        FAIL() << "nothing thrown";
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.GetMessage(), "Function with id KvManager.unknownnot found");
        EXPECT_STREQ(exception.what(), "Function with id KvManager.unknownnot found");
        EXPECT_EQ(exception.GetFile(), "commons_exception_test.cpp");
        EXPECT_EQ(exception.GetFunction(), "TestBody");
        EXPECT_GT(exception.GetLine(), 0);
        EXPECT_EQ(exception.getCode(), ExceptionCodes::InvalidArgumentException);
    }
}

TEST(CommonsExceptionTest, AnExceptionThrownInALambdaRecordsTheFunctionAroundIt) {
    const auto fail = [] { ThrowMsg(NotFoundException, "gone"); };
    try {
        fail();
        FAIL() << "nothing thrown";
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.GetFunction(), "TestBody");
    }
}

TEST(CommonsExceptionTest, ThrowWithoutMessageHasAnEmptyMessage) {
    EXPECT_THROW(Throw(NullPointerException), NullPointerException);
    try {
        Throw(PlatformException);
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.GetMessage(), "");
    }
}

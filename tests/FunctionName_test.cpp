// The qualified function names that reports carry, made from the compiler's signatures.
#include "CoreLib/FunctionName.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zn {
struct Heap {};
namespace naming {

struct Widget {
    Widget() { m_Names.push_back(ZN_FUNCTION_NAME); }
    ~Widget() { Names().push_back(ZN_FUNCTION_NAME); }
    static void* operator new(size_t size, Heap&) {
        Names().push_back(ZN_FUNCTION_NAME);
        return ::operator new(size);
    }
    static void operator delete(void* block) { ::operator delete(block); }
    const char* Constant() const { return ZN_FUNCTION_NAME; }
    static const char* Static() { return ZN_FUNCTION_NAME; }
    const char* operator()(int) { return ZN_FUNCTION_NAME; }
    std::vector<std::string> Returning() { return {ZN_FUNCTION_NAME}; }
    static std::vector<std::string>& Names() {
        static std::vector<std::string> names;
        return names;
    }
    std::vector<std::string> m_Names;
};

template <typename T>
struct Holder {
    const char* Get(const T&) const { return ZN_FUNCTION_NAME; }
};

const char* Free() {
    return ZN_FUNCTION_NAME;
}

}  // namespace naming
}  // namespace zn

const char* GlobalFunction(int, const char*) {
    return ZN_FUNCTION_NAME;
}

namespace zn::test {
namespace {

TEST(FunctionName, MembersStaticsAndOperators) {
    Heap heap;
    naming::Widget* widget = new (heap) naming::Widget;
    EXPECT_EQ(widget->m_Names.at(0), "zn::naming::Widget::Widget");
    EXPECT_STREQ(widget->Constant(), "zn::naming::Widget::Constant");
    EXPECT_STREQ(naming::Widget::Static(), "zn::naming::Widget::Static");
    EXPECT_STREQ((*widget)(1), "zn::naming::Widget::operator()");
    EXPECT_EQ(widget->Returning().at(0), "zn::naming::Widget::Returning");
    delete widget;
    ASSERT_EQ(naming::Widget::Names().size(), 2u);
    EXPECT_EQ(naming::Widget::Names()[0], "zn::naming::Widget::operator new");
    EXPECT_EQ(naming::Widget::Names()[1], "zn::naming::Widget::~Widget");
}

TEST(FunctionName, TemplatesAndFreeFunctions) {
    EXPECT_STREQ(naming::Holder<int>().Get(1), "zn::naming::Holder<T>::Get");
    EXPECT_STREQ(naming::Free(), "zn::naming::Free");
    EXPECT_STREQ(GlobalFunction(1, ""), "GlobalFunction");
}

TEST(FunctionName, ComputedAtCompileTime) {
    constexpr auto name = detail::MakeFunctionName("static void zn::LogManager::Create()");
    static_assert(name.text[0] == 'z');
    EXPECT_STREQ(name.text, "zn::LogManager::Create");
    constexpr auto withTemplate = detail::MakeFunctionName("void zn::Array<T>::Add(const T&) [with T = int]");
    EXPECT_STREQ(withTemplate.text, "zn::Array<T>::Add");
}

}  // namespace
}  // namespace zn::test

#include "vexa/messaging/Json2Model.h"

#include <gtest/gtest.h>

#include "vexa/messaging/Message.h"

namespace vexa {
namespace json2_model_test {

using nlohmann::json;

// Model classes for the tests: a Book, a Novel derived from it, and a Shelf holding both.
class Book : public Json2Model {
 public:
  std::string modelClassName() const override { return cls; }
  ModelValue valueForKey(const std::string& n) const override {
    auto it = values.find(n);
    return it == values.end() ? ModelValue::absent() : it->second;
  }
  void setValueForKey(const std::string& n, const ModelValue& v) override { values[n] = v; }
  std::string cls = "Book";
  std::map<std::string, ModelValue> values;
};

void registerTestModels() {
  static bool done = [] {
    auto make = [](const char* name) {
      return [name] {
        auto b = std::make_shared<Book>();
        b->cls = name;
        return std::shared_ptr<Json2Model>(b);
      };
    };
    Json2Model::registerModelClass(
        "Book", {"Json2Model",
                 make("Book"),
                 {{"isbn", "T@\"NSString\",&,N,V_isbn"}, {"pages", "Tq,N,V_pages"}}});
    Json2Model::registerModelClass(
        "Novel", {"Book", make("Novel"), {{"genre", "T@\"NSString\",&,N,V_genre"}}});
    Json2Model::registerModelClass("Shelf", {"Json2Model",
                                             make("Shelf"),
                                             {{"title", "T@\"NSString\",&,N,V_title"},
                                              {"books", "T@\"NSMutableArray<Book>\",&,N,V_books"},
                                              {"loose", "T@\"NSArray\",&,N,V_loose"},
                                              {"byId", "T@\"NSDictionary<Book>\",&,N,V_byId"},
                                              {"tags", "T@\"NSArray<NSString>\",&,N,V_tags"},
                                              {"best", "T@\"Book\",&,N,V_best"},
                                              {"flag", "TB,N,V_flag"},
                                              {"untyped", "T@,&,N,V_untyped"},
                                              {"nocomma", "Tq"}}});
    return true;
  }();
  (void)done;
}

std::shared_ptr<Book> book(const std::string& isbn, int pages) {
  auto b = std::make_shared<Book>();
  b->setValueForKey("isbn", ModelValue::of(json(isbn)));
  b->setValueForKey("pages", ModelValue::of(json(pages)));
  return b;
}

TEST(Json2ModelTest, MessagesEncodeOnlyWhatTheyHave) {
  EXPECT_EQ(Message("quit").JSONText(), R"({"name":"quit"})");
  const Message sized("TrashSizeChange", {{"Used", UINT64_MAX}});
  EXPECT_EQ(sized.JSONText(),
            R"({"name":"TrashSizeChange","parms":{"Used":18446744073709551615}})");
  auto back = Message::fromJSON(*sized.JSONText());
  ASSERT_TRUE(back);
  EXPECT_EQ(back->name(), "TrashSizeChange");
  EXPECT_EQ(back->parms()["Used"].get<uint64_t>(), UINT64_MAX);
  EXPECT_EQ(Message().JSONText(), "{}");
}

TEST(Json2ModelTest, BareValuesFillThePrimaryKeyOnly) {
  auto fromArray = Message::fromJSON(R"(["a", 1])");
  ASSERT_TRUE(fromArray);
  EXPECT_TRUE(fromArray->hasName());
  EXPECT_EQ(fromArray->name(), "");  // not a string: no receiver acts on it
  EXPECT_TRUE(fromArray->parms().is_null());
  EXPECT_EQ(fromArray->JSONText(), R"({"name":["a",1]})");

  auto noName = Message::fromJSON(R"({"parms":{}})");
  ASSERT_TRUE(noName);
  EXPECT_FALSE(noName->hasName());
  auto nulls = Message::fromJSON(R"({"name":null,"parms":null,"extra":1})");
  ASSERT_TRUE(nulls);
  EXPECT_FALSE(nulls->hasName());
}

TEST(Json2ModelTest, OnlyObjectsAndArraysParse) {
  for (const char* bad : {"5", "\"text\"", "true", "null", "", "{", "{\"name\":\"x\"} trailing",
                          "{\"name\":\"\xff\"}"}) {
    EXPECT_FALSE(Message::fromJSON(bad)) << bad;
  }
  EXPECT_FALSE(Json2Model::getObjectByJSON("{}", "NoSuchClass"));
  EXPECT_FALSE(JSONObject("42"));
  EXPECT_EQ(JSONObject("[1]")->size(), 1u);
}

TEST(Json2ModelTest, UnwritableTextGivesNothing) {
  EXPECT_FALSE(Message("bad \xff utf-8").JSONText());
  EXPECT_FALSE(JSONString(json("\xc3")));
  EXPECT_EQ(JSONString(json{{"a", 1}}), R"({"a":1})");
}

TEST(Json2ModelTest, PropertiesComeOwnFirstThenTheBases) {
  registerTestModels();
  const auto novel = Json2Model::genGetPropertyDeclared("Novel");
  ASSERT_EQ(novel.size(), 3u);
  EXPECT_EQ(novel[0].name, "genre");
  EXPECT_EQ(novel[1].name, "isbn");
  EXPECT_EQ(novel[2].name, "pages");
  EXPECT_EQ(Json2Model::genGetPrimaryKey("Novel"), "genre");
  EXPECT_EQ(Json2Model::genGetPrimaryKey("Message"), "name");
  EXPECT_EQ(Json2Model::genGetPrimaryKey("Unknown"), "");
  EXPECT_TRUE(Json2Model::genGetPropertyDeclared("Json2Model").empty());
}

TEST(Json2ModelTest, DescriptorsAndContainerTypes) {
  EXPECT_EQ(Json2Model::typeNameOf("T@\"NSString\",&,N,V_name"), "NSString");
  EXPECT_EQ(Json2Model::typeNameOf("Tq,N,V_syncEventID"), "q");
  EXPECT_EQ(Json2Model::typeNameOf("T@\"NSMutableArray<AppFile>\",&"), "NSMutableArray<AppFile>");
  EXPECT_FALSE(Json2Model::typeNameOf("Tq"));
  EXPECT_FALSE(Json2Model::typeNameOf(""));
  EXPECT_EQ(Json2Model::genericTypeOf("NSMutableArray<AppFile>"), "AppFile");
  EXPECT_EQ(Json2Model::genericTypeOf("NSArray"), "");
  EXPECT_TRUE(Json2Model::genStringTypeIsArray("NSMutableArray<NSDictionary>"));
  EXPECT_FALSE(Json2Model::genStringTypeIsDictionary("NSMutableArray<NSDictionary>"));
  EXPECT_TRUE(Json2Model::genStringTypeIsDictionary("NSMutableDictionary"));
  EXPECT_TRUE(Json2Model::genStringTypeIsSet("NSSet<Book>"));
  EXPECT_FALSE(Json2Model::genStringTypeIsArray("NSString"));
  EXPECT_EQ(
      Json2Model::enumIntFlagArray(),
      (std::vector<std::string>{"c", "C", "i", "I", "s", "S", "l", "L", "q", "Q", "f", "d", "B"}));
}

TEST(Json2ModelTest, ContainersWithAndWithoutElementTypes) {
  registerTestModels();
  Book shelf;
  shelf.cls = "Shelf";
  shelf.setValueForKey("title", ModelValue::of(json("Classics")));
  shelf.setValueForKey("books", ModelValue::of(std::vector<std::shared_ptr<Json2Model>>{
                                    book("111", 300), book("222", 120)}));
  shelf.setValueForKey("loose", ModelValue::of(json::array({1, "two", json{{"three", 3}}})));
  shelf.setValueForKey(
      "byId",
      ModelValue::of(std::map<std::string, std::shared_ptr<Json2Model>>{{"a", book("333", 5)}}));
  shelf.setValueForKey("tags", ModelValue::of(json::array({"x", "y"})));
  shelf.setValueForKey("best", ModelValue::of(std::shared_ptr<Json2Model>(book("444", 9))));
  shelf.setValueForKey("flag", ModelValue::of(json(true)));
  shelf.setValueForKey("untyped", ModelValue::of(json("skipped: no type name letter")));
  shelf.setValueForKey("nocomma", ModelValue::of(json(1)));

  const auto dictionary = Json2Model::getDictionaryByObject(&shelf);
  ASSERT_TRUE(dictionary);
  const json expected = {
      {"title", "Classics"},
      {"books",
       json::array({{{"isbn", "111"}, {"pages", 300}}, {{"isbn", "222"}, {"pages", 120}}})},
      {"loose", json::array({1, "two", json{{"three", 3}}})},
      {"byId", {{"a", {{"isbn", "333"}, {"pages", 5}}}}},
      {"tags", json::array({json::object(), json::object()})},  // plain elements become {}
      {"best", {{"isbn", "444"}, {"pages", 9}}},
      {"flag", true}};
  EXPECT_EQ(*dictionary, expected);

  auto back = Json2Model::getObjectByDictionary(expected, "Shelf");
  ASSERT_TRUE(back);
  const ModelValue books = back->valueForKey("books");
  ASSERT_EQ(books.kind, ModelValue::Kind::ModelArray);
  ASSERT_EQ(books.models.size(), 2u);
  EXPECT_EQ(books.models[1]->modelClassName(), "Book");
  EXPECT_EQ(books.models[1]->valueForKey("pages").json, 120);
  EXPECT_EQ(back->valueForKey("loose").json, expected["loose"]);  // copied unchanged
  EXPECT_EQ(back->valueForKey("byId").modelDictionary.at("a")->valueForKey("isbn").json, "333");
  EXPECT_EQ(back->valueForKey("best").model->valueForKey("isbn").json, "444");
  EXPECT_EQ(*Json2Model::getDictionaryByObject(back.get()), expected);
}

TEST(Json2ModelTest, ScalarsAreConvertedAndOtherValuesKeptAsTheyCome) {
  registerTestModels();
  auto b = Json2Model::getObjectByJSON(R"({"isbn": 42, "pages": "17"})", "Book");
  ASSERT_TRUE(b);
  EXPECT_EQ(b->valueForKey("isbn").json, 42);     // object property: kept as it came
  EXPECT_EQ(b->valueForKey("pages").json, 17.0);  // scalar: converted to a number
  auto c = Json2Model::getObjectByJSON(R"({"pages": {"not": "a number"}})", "Book");
  EXPECT_TRUE(c->valueForKey("pages").isAbsent());
  auto n = Json2Model::getObjectByDictionary(json("thriller"), "Novel");
  EXPECT_EQ(n->valueForKey("genre").json, "thriller");
  EXPECT_TRUE(n->valueForKey("isbn").isAbsent());
}

}  // namespace json2_model_test
}  // namespace vexa

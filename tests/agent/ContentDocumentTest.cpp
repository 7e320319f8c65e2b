#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/content/ContentDocument.h"
#include "remediation/RecordAccess.h"

namespace zelor::agent {
namespace {

using testing::HasSubstr;

const std::string kId = "CVE-2014-4459";

std::string wrap(const std::string& inside) {
    return "<remediation identifier=\"" + kId + "\">" + inside + "</remediation>";
}

std::string problemOf(const std::string& xml) {
    try {
        ContentDocument::parse(xml, kId);
        return "";
    } catch (const std::runtime_error& e) {
        return e.what();
    }
}

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

TEST(ContentDocumentTest, DigestsAreWholeOrAbsent) {
    const std::string digest(64, 'a');
    const auto with = [&](const std::string& attributes) {
        return wrap("<cre id=\"C\"><eri id=\"E\"><patch id=\"x.pkg\" " + attributes + "/></eri></cre>");
    };
    const auto patches =
        ContentDocument::parse(with("sha256=\"" + digest + "\" length=\"18446744073709551615\""), kId)
            .patches("", "");
    ASSERT_EQ(patches.size(), 1U);
    EXPECT_EQ(patches[0].patchId, "x.pkg");
    EXPECT_EQ(patches[0].file, (FileDigest{digest, ~0ULL}));
    EXPECT_EQ(patches[0].archive, std::nullopt);
    const std::pair<std::string, const char*> refused[] = {
        {"sha256=\"" + digest + "\"", "length is not a number"},
        {"length=\"1\"", "sha256 is not 64"},
        {"archiveSha256=\"" + digest + "a\" archiveLength=\"1\"", "archiveSha256 is not 64"},
        {"archiveSha256=\"" + std::string(64, 'A') + "\" archiveLength=\"1\"", "archiveSha256 is not 64"},
        {"archiveSha256=\"" + digest + "\" archiveLength=\"-1\"", "archiveLength is not a number"},
        {"archiveSha256=\"" + digest + "\" archiveLength=\"18446744073709551616\"",
         "archiveLength is not a number"},
    };
    for (const auto& [attributes, why] : refused)
        EXPECT_THAT(problemOf(with(attributes)), HasSubstr(why));
}

TEST(ContentDocumentTest, ChecksAreReadWithinTheirBounds) {
    const std::string digest(64, 'a');
    const auto with = [&](const std::string& checks) {
        return wrap("<cre id=\"C\"><eri id=\"E\">" + checks + "<patch id=\"x.pkg\"/></eri></cre>");
    };
    using Kind = ContentCheck::Kind;
    const std::tuple<std::string, Kind, const char*, const char*> good[] = {
        {"id=\"x.sh\" sha256=\"" + digest + "\" length=\"3\"", Kind::script, "x.sh", ""},
        {"receipt=\"com.x.pkg\" version=\"2.1\"", Kind::receipt, "com.x.pkg", "2.1"},
        {"bundle=\" /Applications/A B.app \"", Kind::bundle, "/Applications/A B.app", ""},
        {"oracle=\"of a later version\"", Kind::other, "", ""},
    };
    for (const auto& [attributes, kind, name, version] : good) {
        SCOPED_TRACE(attributes);
        const ContentDocument document =
            ContentDocument::parse(with("<check " + attributes + "><future/></check>"), kId);
        const auto checks = document.checks("", "");
        ASSERT_EQ(checks.size(), 1U);
        EXPECT_EQ(checks[0].eriId, "E");
        EXPECT_EQ(checks[0].kind, kind);
        EXPECT_EQ(checks[0].name, name);
        EXPECT_EQ(checks[0].version, version);
        EXPECT_EQ(document.patches("", "").size(), kind == Kind::script ? 2U : 1U);
    }
    const std::string tooLong(201, 'a');
    const std::pair<std::string, const char*> refused[] = {
        {"<check id=\"a.sh\"/><check id=\"b.sh\"/>", "more than one check"},
        {"<check id=\"a.sh\" receipt=\"x\"/>", "more than one of"},
        {"<check id=\"../a.sh\"/>", "not a plain file name"},
        {"<check id=\"sh\"/>", "not a plain file name"},
        {"<check id=\"" + tooLong + ".sh\"/>", "not a plain file name"},
        {"<check id=\"a.sh\" sha256=\"1\"/>", "sha256 is not 64"},
        {"<check receipt=\"\"/>", "not a package identifier"},
        {"<check receipt=\"-x\"/>", "not a package identifier"},
        {"<check receipt=\"a;b\"/>", "not a package identifier"},
        {"<check bundle=\"A.app\"/>", "not a plain absolute path"},
        {"<check bundle=\"/A/../../etc\"/>", "not a plain absolute path"},
        {"<check bundle=\"/A&#10;B\"/>", "control character"},
        {"<check receipt=\"x\" version=\"1 or 2\"/>", "not a version"},
    };
    for (const auto& [checks, why] : refused)
        EXPECT_THAT(problemOf(with(checks)), HasSubstr(why)) << checks;
}

TEST(ContentDocumentTest, EveryFieldFindsItsPlace) {
    const ContentDocument document =
        ContentDocument::parse("\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!-- made by hand -->\n" + wrap(R"(
  <cre id=" CRE-7001 " platform="cpe:/o:apple:mac_os_x" product="cpe:/a:example:editor"><future/>
    <eri id="ERI-1" reboot="true">
      <product> cpe:/a:example:editor
      </product>
      <impact>The <!-- whole --> editor &amp; its <![CDATA[<windows>]]> close.</impact>
      <instructions>
        Install &lt;the&gt; package.
      </instructions>
      <patch id="editor-2.1.pkg" size="12.5 MB" md5="0123456789abcdef0123456789abcdef"/>
      <silent>Contents/Resources/setup --quiet</silent>
      <mskb>KB1</mskb>
    </eri>
    <eri id="ERI-2" reboot="yes"/>
  </cre>)"),
                               kId);
    const creEriParsedData* found = document.find("cpe:/o:apple:mac_os_x", "cpe:/a:example:editor");
    ASSERT_NE(found, nullptr);
    creEriParsedData entry = *found;
    EXPECT_EQ(entry.getCve(), kId);
    EXPECT_EQ(entry.getCce(), "");
    EXPECT_EQ(entry.getCreId(), "CRE-7001");
    EXPECT_EQ(entry.getEriIds(), (std::vector<std::string>{"ERI-1", "ERI-2"}));
    auto blocks = entry.getParsedEriDataBlocks();
    ASSERT_EQ(blocks.size(), 2U);
    parsedEriData& eri = blocks[0];
    EXPECT_EQ(eri.getEriId(), "ERI-1");
    EXPECT_TRUE(eri.getReboot());
    EXPECT_EQ(eri.getProductCpe(), "cpe:/a:example:editor");
    EXPECT_EQ(eri.getOperationImpact(), "The  editor & its <windows> close.");
    EXPECT_EQ(eri.getInstructions(), "Install <the> package.");
    EXPECT_EQ(eri.getPatchId(), "editor-2.1.pkg");
    EXPECT_EQ(eri.getPatchSize(), "12.5 MB");
    EXPECT_EQ(eri.getMd5sum(), "0123456789abcdef0123456789abcdef");
    EXPECT_EQ(eri.getSilentModeCmd(), "Contents/Resources/setup --quiet");
    EXPECT_EQ(eri.getMskbId(), "KB1");
    EXPECT_FALSE(blocks[1].getReboot());
    EXPECT_EQ(blocks[1].getPatchId(), "");
}

TEST(ContentDocumentTest, TheFirstEntryThatFitsIsTaken) {
    const ContentDocument document =
        ContentDocument::parse(wrap("<cre id='1' platform='o1' product='a1'/><cre id='2' platform='o1'/>"
                                    "<cre id='3' product='a3'/><cre id='4' platform='o4' product=''/>"),
                               kId);
    const auto creFor = [&](const std::string& platform, const std::string& product) {
        const creEriParsedData* entry = document.find(platform, product);
        return entry == nullptr ? "none" : creEriParsedData(*entry).getCreId();
    };
    EXPECT_EQ(creFor("o1", "a1"), "1");
    EXPECT_EQ(creFor("o1", "a3"), "2");
    EXPECT_EQ(creFor("o2", "a3"), "3");
    EXPECT_EQ(creFor("o4", ""), "4");
    EXPECT_EQ(creFor("o4", "a4"), "none");
    EXPECT_EQ(creFor("O1", "a1"), "none");
}

TEST(ContentDocumentTest, WhatIsNoContentIsRefusedWithItsPlace) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "malformed XML"},
        {"not xml", "malformed XML"},
        {wrap("\n\n<cre>"), "line 3"},
        {wrap("<cre></eri>"), "malformed XML"},
        {"<remediation identifier=\"CVE-2014-4459\"><cre/>", "malformed XML"},
        {wrap("") + wrap(""), "a second root element"},
        {"<content identifier=\"CVE-2014-4459\"/>", "the root element is \"content\""},
        {"<remediation identifier=\"CVE-2014-4458\"/>", "the file is for \"CVE-2014-4458\""},
        {"<remediation/>", "the file is for \"\""},
        {"<!DOCTYPE remediation [<!ENTITY a \"b\">]>" + wrap(""), "a document type"},
        {wrap(std::string("<cre>\0</cre>", 12)), "a zero byte"},
        {wrap("\n<cre><eri/></cre>"), "line 2"},
        {wrap("<cre><eri id='a&#10;b'/></cre>"), "a control character in id"},
        {wrap("<cre><eri id='a'><patch id='a&#x1b;b.pkg'/></eri></cre>"), "a control character in id"},
        {wrap("<cre><eri id='a'><silent>a&#7;b</silent></eri></cre>"), "a control character in silent"},
        {wrap(repeated("<a>", 40) + repeated("</a>", 40)), "more than 32 deep"},
        {wrap(repeated("<a>", 200'000) + repeated("</a>", 200'000)), "more than 32 deep"},
        {wrap(repeated("<cre/>", 1001)), "more than 1000 cre"},
        {wrap("<cre>" + repeated("<eri id='e'/>", 1001) + "</cre>"), "more than 1000 eri"},
        {wrap(repeated("<cre>" + repeated("<eri id='e'/>", 1000) + "</cre>", 11)), "more than 10000 eri"},
        {wrap(std::string(4U << 20U, ' ')), "larger than 4 MiB"},
    };
    for (const auto& [xml, problem] : cases)
        EXPECT_THAT(problemOf(xml), HasSubstr(problem)) << xml.substr(0, 200);
    EXPECT_EQ(problemOf(wrap(repeated("<cre/>", 1000))), "");
    EXPECT_EQ(problemOf(wrap("<cre>" + repeated("<eri id='e'/>", 1000) + "</cre>")), "");
}

TEST(ContentDocumentTest, IdentifiersAreSafeNames) {
    for (const std::string& good :
         {std::string("CVE-2014-4459"), std::string("CCE-1"), std::string("a..b_c"), std::string(128, 'x')})
        EXPECT_TRUE(isContentIdentifier(good)) << good;
    for (const std::string& bad :
         std::vector<std::string>{"", ".", "..", ".x", "-x", "a/b", "../a", "a b", "a%2fb", "a\nb", "a?b",
                                  "é", std::string("a\0", 2), std::string(129, 'x')})
        EXPECT_FALSE(isContentIdentifier(bad)) << bad;
}

}  // namespace
}  // namespace zelor::agent

// Descriptor files: written from a described plugin, read back into a record,
// from a file or straight from the host program's output.
#include "audiovst.h"
#include "vsteffect_p.h"

#include "libbase.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace vlortest;

namespace {

const std::string kHost = VLOR_BIN_DIR "/vlorvst";
const std::string kFixtures = VLOR_FIXTURE_VST_DIR;

class Descriptor : public ::testing::Test {
protected:
    void SetUp() override { AUDIOVST_Initialize(); }
    void TearDown() override
    {
        for (_VSTEFFECT* e : records)
            AUDIOVST_DeletePlugin(e);
    }
    _VSTEFFECT* record(const std::string& file, int id = 0)
    {
        records.push_back(_CreateEffectRecord(file.c_str(), id));
        return records.back();
    }
    std::string infoCommand(const std::string& file, int id = 0)
    {
        return "popen://\"" + kHost + "\" --info \"" + file + "\" --id " + std::to_string(id);
    }
    std::string writeToFile(const _VSTEFFECT* e)
    {
        const std::string path = dir.file("d.vstxml");
        FILE* f = std::fopen(path.c_str(), "w");
        EXPECT_EQ(_WriteVSTXML(e, f), 1);
        std::fclose(f);
        return path;
    }
    TempDir dir;
    std::vector<_VSTEFFECT*> records;
};

void expectSameEffect(const _VSTEFFECT* a, const _VSTEFFECT* b)
{
    EXPECT_EQ(a->category, b->category);
    EXPECT_EQ(a->timestamp, b->timestamp);
    EXPECT_EQ(a->uniqueId, b->uniqueId);
    EXPECT_EQ(a->plugCategory, b->plugCategory);
    EXPECT_STREQ(a->vendor, b->vendor);
    EXPECT_STREQ(a->product, b->product);
    EXPECT_STREQ(a->effectName, b->effectName);
    EXPECT_EQ(a->u.fx.flags, b->u.fx.flags);
    EXPECT_EQ(a->u.fx.numInputs, b->u.fx.numInputs);
    ASSERT_EQ(a->numParams, b->numParams);
    for (int i = 0; i < a->numParams; ++i) {
        EXPECT_STREQ(a->parameters[i].name, b->parameters[i].name) << i;
        EXPECT_STREQ(a->parameters[i].label, b->parameters[i].label) << i;
        EXPECT_EQ(a->parameters[i].kind, b->parameters[i].kind) << i;
        EXPECT_FLOAT_EQ(a->parameters[i].minValue, b->parameters[i].minValue) << i;
        EXPECT_FLOAT_EQ(a->parameters[i].maxValue, b->parameters[i].maxValue) << i;
        EXPECT_EQ(a->parameters[i].valueType == nullptr, b->parameters[i].valueType == nullptr) << i;
    }
    ASSERT_EQ(a->numPrograms, b->numPrograms);
    for (int p = 0; p < a->numPrograms; ++p) {
        EXPECT_STREQ(a->programs[p]->name, b->programs[p]->name);
        for (int i = 0; i < a->numParams; ++i)
            EXPECT_NEAR(a->programs[p]->values[i], b->programs[p]->values[i], 1e-5);
    }
}

} // namespace

TEST_F(Descriptor, InfoThroughPopenGivesTheSameRecordAsTheFile)
{
    const std::string file = kFixtures + "/vlor-fixture-stereo.so";
    _VSTEFFECT* fromHost = record(file);
    ASSERT_EQ(_LoadFromVSTXML(fromHost, infoCommand(file).c_str()), 1);
    EXPECT_STREQ(fromHost->effectName, "Vlor Fixture Stereo");
    EXPECT_EQ(AUDIOVST_GetPlugCategory(fromHost), 1) << "what it says it is: an effect";
    EXPECT_EQ(fromHost->timestamp, BLIO_GetFileTimeStamp(file.c_str(), 2));
    EXPECT_EQ(fromHost->numParams, 4);
    EXPECT_EQ(fromHost->parameters[0].kind, 2); // -24 dB .. 24 dB on a line
    EXPECT_FLOAT_EQ(fromHost->parameters[0].minValue, -24.0f);
    EXPECT_FLOAT_EQ(fromHost->parameters[0].maxValue, 24.0f);
    EXPECT_EQ(fromHost->parameters[1].kind, 1);
    ASSERT_NE(fromHost->parameters[1].valueType, nullptr);
    EXPECT_EQ(fromHost->parameters[1].valueType->count, 2);
    EXPECT_STREQ(fromHost->parameters[1].valueType->entries[1].name, "On");
    EXPECT_FLOAT_EQ(fromHost->parameters[1].valueType->entries[1].high, 1.0f);
    EXPECT_EQ(fromHost->parameters[2].kind, 3);
    EXPECT_STREQ(fromHost->parameters[2].minDisplay, "6 dB/oct");
    ASSERT_EQ(fromHost->numPrograms, 3);
    EXPECT_STREQ(fromHost->programs[1]->name, "LEAD");
    EXPECT_FLOAT_EQ(fromHost->programs[1]->values[0], 0.75f);
    ASSERT_NE(fromHost->defaultProgram, nullptr);
    EXPECT_EQ(fromHost->defaultProgram->id, -1);
    EXPECT_FLOAT_EQ(fromHost->defaultProgram->values[0], 0.5f); // restored after reading the programs

    _VSTEFFECT* fromFile = record(file);
    ASSERT_EQ(_LoadFromVSTXML(fromFile, writeToFile(fromHost).c_str()), 1);
    expectSameEffect(fromHost, fromFile);
}

TEST_F(Descriptor, NamesWithAmpersandsAndAnglesRoundTrip)
{
    const std::string file = kFixtures + "/vlor-fault-chatty.so";
    _VSTEFFECT* e = record(file);
    ASSERT_EQ(_LoadFromVSTXML(e, infoCommand(file).c_str()), 1);
    EXPECT_STREQ(e->effectName, "Faulty chatty & <Co>");
    EXPECT_STREQ(e->vendor, "Vlor \"Faults\" & Co");
    EXPECT_STREQ(e->parameters[1].name, "Tone & <Color>");
    _VSTEFFECT* again = record(file);
    ASSERT_EQ(_LoadFromVSTXML(again, writeToFile(e).c_str()), 1);
    expectSameEffect(e, again);
}

TEST_F(Descriptor, AShellListsItsEntriesAndNoDescription)
{
    const std::string file = kFixtures + "/vlor-fixture-shell.so";
    _VSTEFFECT* e = record(file);
    ASSERT_EQ(_LoadFromVSTXML(e, infoCommand(file).c_str()), 1);
    EXPECT_EQ(e->category, VSTEFFECT_CATEGORY_SHELL);
    EXPECT_FALSE(AUDIOVST_IsEffect(e));
    ASSERT_EQ(AUDIOVST_PluginsCount(e), 4);
    EXPECT_STREQ(AUDIOVST_GetPluginName(e, 3), "Shell \"Child\" & <Wide>");
    EXPECT_STREQ(AUDIOVST_GetPluginName(e, 2), "Shell Child Synth");
    EXPECT_EQ(e->u.shell.shellEntries[0].effect, nullptr);
    EXPECT_STREQ(AUDIOVST_GetVendorString(e), "Vlor Test Vendor");
    EXPECT_EQ(e->numParams, 0);
}

TEST_F(Descriptor, ParametersInReverseOrderAreAllFoundAndTheCountIsOverruled)
{
    const std::string file = "/plugins/reverse.so";
    const std::string path = dir.file("reverse.vstxml");
    writeFile(path, "<?xml version=\"1.0\"?>\n<VLORVST><Filename>" + file +
                        "</Filename><TimeStamp>42</TimeStamp><Category>effect</Category><UniqueID>7</UniqueID>"
                        "<VSTPluginDescription><NumParams>99</NumParams><NumInputs>2</NumInputs></VSTPluginDescription>"
                        "<VSTPluginProperties><VSTParametersStructure>"
                        "<ValueType name=\"Mode\"><Entry name=\"A\" value=\"[0, 0.5]\"/><Entry name=\"B\" value=\"[0.5, 1]\"/></ValueType>"
                        "<Param name=\"Third\" id=\"2\" type=\"Mode\"/>"
                        "<Param name=\"Second\" id=\"1\" type=\"Mode\"/>"
                        "<Param name=\"First\" label=\"dB\" id=\"0\"/>"
                        "</VSTParametersStructure></VSTPluginProperties>"
                        "<VLORVSTPluginProperties><VLORVSTParametersStructure>"
                        "<Param id=\"0\" kind=\"linear\" minDisplayValue=\"-6\" maxDisplayValue=\"6\"/>"
                        "</VLORVSTParametersStructure></VLORVSTPluginProperties>"
                        "<VSTPrograms><DefaultProgram><Param id=\"2\" value=\"0.75\"/><Param id=\"9\" value=\"1\"/>"
                        "</DefaultProgram></VSTPrograms></VLORVST>");
    _VSTEFFECT* e = record(file);
    ASSERT_EQ(_LoadFromVSTXML(e, path.c_str()), 1);
    ASSERT_EQ(e->numParams, 3);
    EXPECT_STREQ(e->parameters[0].name, "First");
    EXPECT_STREQ(e->parameters[2].name, "Third");
    EXPECT_EQ(e->parameters[0].kind, 2);
    EXPECT_FLOAT_EQ(e->parameters[0].minValue, -6.0f);
    EXPECT_EQ(e->parameters[1].kind, 1);
    // One value type, shared by both parameters that name it.
    EXPECT_EQ(e->parameters[1].valueType, e->parameters[2].valueType);
    ASSERT_NE(e->parameters[1].valueType, nullptr);
    EXPECT_FLOAT_EQ(e->parameters[1].valueType->entries[1].low, 0.5f);
    EXPECT_FLOAT_EQ(e->defaultProgram->values[2], 0.75f);
    EXPECT_EQ(e->timestamp, 42);
}

TEST_F(Descriptor, ADescriptorOfAnotherFileOrABrokenOneChangesNothing)
{
    const std::string path = dir.file("other.vstxml");
    writeFile(path, "<VLORVST><Filename>/plugins/./a//b.so</Filename><UniqueID>5</UniqueID></VLORVST>");
    _VSTEFFECT* same = record("/plugins/a/b.so");
    EXPECT_EQ(_LoadFromVSTXML(same, path.c_str()), 1); // the same path, written differently
    EXPECT_EQ(same->uniqueId, 5);
    _VSTEFFECT* other = record("/plugins/a/c.so");
    EXPECT_EQ(_LoadFromVSTXML(other, path.c_str()), 0);
    EXPECT_EQ(other->uniqueId, 0);

    for (const char* broken : {"", "<VLORVST>", "not xml at all", "<VLORVST><Filename>/plugins/a/c.so</Filename>"}) {
        writeFile(path, broken);
        EXPECT_EQ(_LoadFromVSTXML(other, path.c_str()), 0) << broken;
    }
    EXPECT_EQ(_LoadFromVSTXML(other, dir.file("missing").c_str()), 0);
    EXPECT_EQ(_LoadFromVSTXML(other, "popen:///bin/false"), 0);
}

TEST(XmlEncode, EscapesAndKeepsTheBufferOnEmptyText)
{
    char out[256] = "previous";
    _XMLEncode("a<b>&\"c'", out, sizeof(out));
    EXPECT_STREQ(out, "a&lt;b&gt;&amp;&quot;c'");
    _XMLEncode("", out, sizeof(out));
    EXPECT_STREQ(out, "a&lt;b&gt;&amp;&quot;c'");
    char small[8];
    _XMLEncode("&&&&", small, sizeof(small));
    EXPECT_STREQ(small, "&amp;&a"); // what snprintf could still write of the escape
}

TEST(Dom, PathLanguageAndCountOnlyMode)
{
    const std::string xml = "<R><I id=\"1\" name=\"a b\"><L>x</L></I><I id=\"2\" name=\"c\"><L>y</L><L>z</L></I></R>";
    BLDOM dom = BLDOM_CreateFromXMLString(xml.c_str(), int(xml.size()));
    ASSERT_NE(dom, nullptr);
    EXPECT_EQ(BLDOM_FindNodes(dom, nullptr, 0, "/R/I/L"), 3);
    EXPECT_EQ(BLDOM_FindNodes(dom, nullptr, 0, "/R/I[@id=%d]/L", 2), 2);
    EXPECT_STREQ(BLDOM_NodeTextContent(dom, BLDOM_FindNode(dom, "/R/I[@name=\"%s\"]/L", "a b")), "x");
    BLDOMNode nodes[1];
    EXPECT_EQ(BLDOM_FindNodes(dom, nodes, 1, "/R/I/L"), 3);
    EXPECT_STREQ(BLDOM_NodeTextContent(dom, nodes[0]), "x");
    EXPECT_EQ(BLDOM_FindNode(dom, "/X/I"), nullptr);
    EXPECT_EQ(BLDOM_FindNode(dom, "/R/I[@id=3]"), nullptr);
    EXPECT_EQ(BLDOM_FindNode(dom, "R/I"), nullptr);         // not in the language
    EXPECT_EQ(BLDOM_FindNode(dom, "/R/I[@id=\"1]"), nullptr); // unbalanced
    EXPECT_EQ(BLDOM_NodeAttributeTextValue(dom, BLDOM_FindNode(dom, "/R/I"), "none"), nullptr);
    EXPECT_STREQ(BLDOM_NodeTextContent(dom, nullptr), "");
    BLDOM_Destroy(dom);
}

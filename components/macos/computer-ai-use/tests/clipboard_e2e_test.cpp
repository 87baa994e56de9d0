// get-clipboard and set-clipboard end to end, and the simulated paste that takes what was set.
#include <gtest/gtest.h>

#include "input/clipboard_commands.h"
#include "platform/sim/sim_platform.h"
#include "test_support.h"

using namespace tavlin;
using tavlin::testing::DesktopFixture;
using tavlin::testing::readText;
using tavlin::testing::ToolRun;

namespace {

const std::string exampleDesktop = std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json";

std::string lastLine(const std::string& text) {
  std::string trimmed = text.substr(0, text.find_last_not_of('\n') + 1);
  std::string line = trimmed.substr(trimmed.rfind('\n') + 1);
  return line.substr(line.find(' ') + 1);  // without the time
}

std::string withClipboard(const std::string& clipboard) {
  return R"({"tavlinDesktop": 1, "clipboard": )" + clipboard + "}";
}

}  // namespace

TEST(Clipboard, SetReadsBackAndGetGivesTheTextAndItsTypes) {
  DesktopFixture d(readText(exampleDesktop));
  ToolRun empty = d.run({"get-clipboard"});
  ASSERT_EQ(empty.status, 0) << empty.err;
  EXPECT_EQ(empty.out, "{\n  \"change_count\" : 0,\n  \"changeCount\" : 0,\n  \"types\" : [\n\n  ]\n}\n");

  const std::string text = "Zo\u00eb \U0001F44D\U0001F3FD\nline/2";
  ToolRun set = d.run({"set_clipboard", "--text", text});
  ASSERT_EQ(set.status, 0) << set.err;
  EXPECT_EQ(set.out, "{\n  \"change_count\" : 1,\n  \"changeCount\" : 1,\n  \"length\" : 12,\n  \"ok\" : true,\n"
                     "  \"types\" : [\n    \"public.utf8-plain-text\"\n  ]\n}\n");
  EXPECT_EQ(lastLine(d.events()), "system clipboard-set text=\"Zo\u00eb \U0001F44D\U0001F3FD\\nline/2\" changeCount=1");

  ToolRun get = d.run({"get-clipboard"});
  ASSERT_EQ(get.status, 0) << get.err;
  EXPECT_EQ(get.out, "{\n  \"change_count\" : 1,\n  \"changeCount\" : 1,\n"
                     "  \"text\" : \"Zo\u00eb \U0001F44D\U0001F3FD\\nline/2\",\n"
                     "  \"types\" : [\n    \"public.utf8-plain-text\"\n  ]\n}\n");
}

TEST(Clipboard, BackgroundPastePastesWhatWasSet) {
  // Without a clipboard the paste changes nothing, as before.
  DesktopFixture plain(readText(exampleDesktop));
  ASSERT_EQ(plain.run({"background-paste-clipboard", "--app", "Scribe", "--screen-x", "400", "--screen-y", "300"}).status, 0);
  EXPECT_EQ(plain.events().find("text-edited"), std::string::npos);
  EXPECT_NE(readText(plain.path).find("\"value\": \"Agenda\\n- Budget review"), std::string::npos);

  DesktopFixture d(readText(exampleDesktop));
  ASSERT_EQ(d.run({"set-clipboard", "--text", "Ship it"}).status, 0);
  ToolRun paste = d.run({"background-paste-clipboard", "--app", "Scribe", "--screen-x", "400", "--screen-y", "300"});
  ASSERT_EQ(paste.status, 0) << paste.err;
  EXPECT_EQ(lastLine(d.events()), "pid:4242 key-up keyCode=9 flags=0x100000");
  EXPECT_NE(d.events().find(" pid:4242 text-edited element=editor value=\"Ship it\"\n"), std::string::npos) << d.events();
  EXPECT_NE(readText(d.path).find("\"value\": \"Ship it\""), std::string::npos);

  // Keeping the field's text: the paste goes after it.
  ASSERT_EQ(d.run({"background-paste-clipboard", "--app", "Scribe", "--screen-x", "400", "--screen-y", "300",
                   "--select-existing", "false", "--clear-existing", "false"})
                .status,
            0);
  EXPECT_NE(readText(d.path).find("\"value\": \"Ship itShip it\""), std::string::npos);
}

TEST(Clipboard, RefusalsReadBacksAndBounds) {
  const std::vector<std::tuple<std::string, std::vector<std::string>, std::string>> cases = {
      {withClipboard(R"({"writeFails": true})"), {"set-clipboard", "--text", "hi"}, "The clipboard refused the text"},
      {withClipboard(R"({"text": "old", "replacedAfterWrite": "copied elsewhere"})"), {"set-clipboard", "--text", "hi"},
       "The clipboard does not hold the text after it was written (another application may have replaced it); a "
       "paste now would not paste it"},
      {withClipboard("{}"), {"set-clipboard"}, "Missing required flag --text"},
      {withClipboard(R"({"text": ")" + std::string((size_t{1} << 20) + 1, 'x') + "\"}"), {"get-clipboard"},
       "The clipboard's text is larger than 1 MiB (1048577 bytes); the clipboard commands move at most 1048576 "
       "bytes of text"},
      {withClipboard(R"({"text": "x", "types": ["public.png"]})"), {"get-clipboard"},
       "clipboard.types: a clipboard with text lists public.utf8-plain-text"},
      {withClipboard(R"({"txt": "x"})"), {"get-clipboard"}, "clipboard: unknown key \"txt\""},
  };
  for (const auto& [desktop, command, err] : cases) {
    DesktopFixture d(desktop);
    ToolRun r = d.run(command);
    EXPECT_EQ(r.status, 1) << err;
    EXPECT_EQ(r.out, "");
    EXPECT_TRUE(r.err.ends_with(err + "\n")) << r.err;
  }
  // What the other application put there is what the clipboard now holds.
  DesktopFixture taken(withClipboard(R"({"text": "old", "replacedAfterWrite": "copied elsewhere"})"));
  taken.run({"set-clipboard", "--text", "hi"});
  EXPECT_NE(taken.run({"get-clipboard"}).out.find("\"text\" : \"copied elsewhere\""), std::string::npos);
  EXPECT_EQ(lastLine(taken.events()), "system clipboard-replaced text=\"copied elsewhere\" changeCount=2");

  // Texts the command line cannot carry, from a caller in this process.
  sim::SimPlatform platform(sim::SimDesktop::fromJson(nlohmann::ordered_json::parse(withClipboard("{}")), "/unused", ""));
  runtime::ProcessValues values;
  runtime::BufferedOutput output;
  runtime::CommandContext context{values, platform, output};
  auto setting = [&](const std::string& text) {
    return tavlin::testing::toolErrorOf([&] { input::handleSetClipboard(context, {{"--text", text}}); });
  };
  EXPECT_EQ(setting(std::string(input::maxClipboardBytes + 1, 'x')),
            "--text is larger than 1 MiB (1048577 bytes); the clipboard commands move at most 1048576 bytes of text");
  EXPECT_EQ(setting("caf\xe9"), "--text is not valid UTF-8");
  EXPECT_EQ(setting(std::string(input::maxClipboardBytes, 'x')), "<no error>");
  EXPECT_EQ(platform.desktop().clipboard()->text->size(), input::maxClipboardBytes);
}

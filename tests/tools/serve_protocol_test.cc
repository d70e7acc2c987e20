// The frames between a client, the server and its workers, and what travels
// in them: whole or byte by byte, with descriptors, and refused when
// malformed or too large.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "frames.h"
#include "json_part.h"
#include "requests.h"

namespace tabulon::cli {
namespace {

using State = FrameReader::State;

std::string U32(uint32_t v) {
  return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8), static_cast<char>(v)};
}

// Feeds `bytes` in pieces of `step`, as a socket might hand them over.
State FeedAll(FrameReader& reader, const std::string& bytes, size_t step) {
  State state = State::kNeedMore;
  for (size_t at = 0; at < bytes.size() && state == State::kNeedMore;) {
    const size_t n = std::min({step, bytes.size() - at, reader.Wanted()});
    state = reader.Feed(bytes.data() + at, n);
    at += n;
  }
  return state;
}

TEST(Frames, MessagesComeBackAsTheyWentWholeOrByteByByte) {
  const Message messages[] = {
      {'S', {}},
      {'R', {"", "two words", std::string("nul\0inside", 10), std::string(70000, 'x')}},
      {'D', {"0", "13", "tabulon: line\n"}},
  };
  for (const Message& m : messages) {
    for (const size_t step : {size_t{1}, size_t{3}, size_t{1} << 20}) {
      FrameReader reader;
      ASSERT_EQ(FeedAll(reader, EncodeFrame(m), step), State::kComplete) << reader.error();
      const Message back = reader.TakeMessage();
      EXPECT_EQ(back.type, m.type);
      EXPECT_EQ(back.fields, m.fields);
      // The reader is ready for the next frame at once.
      EXPECT_EQ(reader.Wanted(), 4u);
    }
  }
}

TEST(Frames, MalformedOrOversizeFramesAreRefused) {
  const struct {
    std::string bytes;
    std::string says;
  } cases[] = {
      {U32(kMaxFrame + 1), "larger than the limit"},
      {U32(0xffffffff), "larger than the limit"},
      {U32(3) + std::string("R\0\0", 3), "too short"},
      {U32(5) + "R" + U32(2), "cannot hold them"},
      {U32(9) + "R" + U32(1) + U32(1), "runs past its end"},
      {U32(15) + "R" + U32(1) + U32(2) + "ab" + "xyzw", "after its last field"},
      {U32(13) + "R" + U32(2) + U32(2) + "xy" + "ab", "inside the length of field 2"},
  };
  for (const auto& c : cases) {
    FrameReader reader;
    EXPECT_EQ(FeedAll(reader, c.bytes, 1), State::kError) << c.says;
    EXPECT_NE(reader.error().find(c.says), std::string::npos) << reader.error();
  }
}

TEST(Frames, AnOversizeFrameIsRefusedBeforeItsBodyIsRead) {
  FrameReader reader;
  EXPECT_EQ(reader.Feed(U32(64u << 20).data(), 4), State::kError);
}

class SocketPair : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0); }
  void TearDown() override {
    for (int fd : ends_) {
      if (fd >= 0) close(fd);
    }
  }
  int ends_[2] = {-1, -1};
};

TEST_F(SocketPair, DescriptorsTravelWithTheirFrameAndOnlyWithIt) {
  int pipe_ends[2];
  ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC), 0);
  ASSERT_TRUE(SendFrame(ends_[0], Message{'R', {"first"}}, {pipe_ends[1]}));
  ASSERT_TRUE(SendFrame(ends_[0], Message{'S', {"second"}}));
  FrameReader reader;
  ASSERT_EQ(reader.ReadWhole(ends_[1]), State::kComplete) << reader.error();
  EXPECT_EQ(reader.TakeMessage().fields, std::vector<std::string>{"first"});
  std::vector<int> fds = reader.TakeFds();
  ASSERT_EQ(fds.size(), 1u);
  // The descriptor received is the pipe's writing end, close-on-exec.
  EXPECT_EQ(write(fds[0], "x", 1), 1);
  char c = 0;
  EXPECT_EQ(read(pipe_ends[0], &c, 1), 1);
  EXPECT_EQ(c, 'x');
  EXPECT_NE(fcntl(fds[0], F_GETFD) & FD_CLOEXEC, 0);
  CloseAll(fds);
  ASSERT_EQ(reader.ReadWhole(ends_[1]), State::kComplete);
  EXPECT_EQ(reader.TakeMessage().type, 'S');
  EXPECT_TRUE(reader.TakeFds().empty());
  close(pipe_ends[0]);
  close(pipe_ends[1]);
}

TEST_F(SocketPair, MoreDescriptorsThanAFrameMayCarryAreRefused) {
  std::vector<int> many;
  for (int i = 0; i < 4; ++i) many.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  // The sender refuses too; send them by hand, as a hostile peer would.
  EXPECT_FALSE(SendFrame(ends_[0], Message{'R', {}}, many));
  const std::string frame = EncodeFrame(Message{'R', {}});
  iovec iov{const_cast<char*>(frame.data()), frame.size()};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * 4)];
  msghdr msg{};
  msg.msg_iov = &iov;
  msg.msg_iovlen = 1;
  msg.msg_control = control;
  msg.msg_controllen = sizeof control;
  cmsghdr* c = CMSG_FIRSTHDR(&msg);
  c->cmsg_level = SOL_SOCKET;
  c->cmsg_type = SCM_RIGHTS;
  c->cmsg_len = CMSG_LEN(sizeof(int) * 4);
  memcpy(CMSG_DATA(c), many.data(), sizeof(int) * 4);
  ASSERT_GT(sendmsg(ends_[0], &msg, 0), 0);
  FrameReader reader;
  EXPECT_EQ(reader.ReadWhole(ends_[1]), State::kError);
  EXPECT_NE(reader.error().find("more than 3 descriptors"), std::string::npos) << reader.error();
  CloseAll(many);
}

TEST_F(SocketPair, AnEndBetweenFramesIsClosedAndInsideOneIsAnError) {
  FrameReader between;
  close(ends_[0]);
  ends_[0] = -1;
  EXPECT_EQ(between.ReadWhole(ends_[1]), State::kClosed);

  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
  const std::string frame = EncodeFrame(Message{'R', {"cut short"}});
  ASSERT_EQ(write(pair[0], frame.data(), frame.size() - 3), static_cast<ssize_t>(frame.size() - 3));
  close(pair[0]);
  FrameReader inside;
  EXPECT_EQ(inside.ReadWhole(pair[1]), State::kError);
  EXPECT_NE(inside.error().find("ended inside a frame"), std::string::npos);
  close(pair[1]);
}

TEST(Requests, ACommandLineComesBackWithItsFolderAndSettings) {
  const RunRequest sent{"/work/here", 077, {"convert", "-", "a b.xlsx"}, {"TABULON_INPUT_PASSWORD=p=q", "HOME=/h"}};
  RunRequest back;
  std::string error;
  ASSERT_TRUE(DecodeRun(EncodeRun(sent), back, error)) << error;
  EXPECT_EQ(back.working_folder, sent.working_folder);
  EXPECT_EQ(back.umask, 077);
  EXPECT_EQ(back.args, sent.args);
  EXPECT_EQ(back.env, sent.env);
}

TEST(Requests, RequestsThatCannotBeRunAreRefusedWithTheReason) {
  const auto with = [](std::vector<std::string> fields) { return Message{kRunMessage, std::move(fields)}; };
  const struct {
    Message message;
    std::string says;
  } cases[] = {
      {with({"tabulon-serve-0", "/w", "18", "0"}), "the client speaks tabulon-serve-0"},
      {with({kProtocolVersion, "relative", "18", "0"}), "not an absolute path"},
      {with({kProtocolVersion, "/w", "18", "3", "a"}), "'3' words"},
      {with({kProtocolVersion, "/w", "18", "x"}), "'x' words"},
      {with({kProtocolVersion, "/w", "18", "-1"}), "'-1' words"},
      {with({kProtocolVersion, "/w", "512", "0"}), "mask of '512'"},
      {with({kProtocolVersion, "/w", "18", "0", "PATH=/bin"}), "'PATH' is not a setting"},
      {with({kProtocolVersion, "/w", "18", "0", "TABULON_OFFICE=/x"}), "'TABULON_OFFICE' is not a setting"},
      {with({kProtocolVersion, "/w", "18"}), "not a command line"},
      {Message{kStatusMessage, {kProtocolVersion, "/w", "18", "0"}}, "not a command line"},
  };
  for (const auto& c : cases) {
    RunRequest request;
    std::string error;
    EXPECT_FALSE(DecodeRun(c.message, request, error)) << c.says;
    EXPECT_NE(error.find(c.says), std::string::npos) << error;
  }
}

TEST(Requests, TheEndOfACommandLineIsReadBackOrRefused) {
  RunResult back;
  std::string error;
  ASSERT_TRUE(DecodeDone(EncodeDone(RunResult{1, 13, "tabulon: x\n", 512}), back, error));
  EXPECT_EQ(back.status, 1);
  EXPECT_EQ(back.signal, 13);
  EXPECT_EQ(back.message, "tabulon: x\n");
  EXPECT_EQ(back.office_kb, 512);
  for (const Message& bad : {Message{kDoneMessage, {"1", "0", ""}}, Message{kDoneMessage, {"x", "0", "", "0"}},
                             Message{kDoneMessage, {"256", "0", "", "0"}}, Message{'T', {"1", "0", "", "0"}}}) {
    EXPECT_FALSE(DecodeDone(bad, back, error));
  }
}

TEST(Requests, OnlyTheCallersOwnSettingsTravel) {
  for (const char* name : {"TABULON_INPUT_PASSWORD", "TABULON_TARGET_PASSWORD_TW", "HOME", "XDG_CONFIG_HOME"}) {
    EXPECT_TRUE(IsClientSetting(name)) << name;
  }
  for (const char* name : {"TABULON_SERVER", "TABULON_OFFICE", "TABULON_CALL_TIME_LIMIT", "TABULON_PROFILE_CACHE",
                           "PATH", "TMPDIR", "LD_PRELOAD", "TABULONX"}) {
    EXPECT_FALSE(IsClientSetting(name)) << name;
  }
}

TEST(JsonParts, AFilesPartIsSplitFromWhatItPrintedBefore) {
  const JsonPart part{"-11", R"(["/o/a.csv"])", R"(["North"])", R"([{"file":"/a.xlsx"}])"};
  std::string before;
  JsonPart back;
  ASSERT_TRUE(SplitJsonPart("{\"command\":\"convert\"}\n" + FormatJsonPart(part), before, back));
  EXPECT_EQ(before, "{\"command\":\"convert\"}\n");
  EXPECT_EQ(back.code, "-11");
  EXPECT_EQ(back.files, part.files);
  EXPECT_EQ(back.sheets, part.sheets);
  EXPECT_EQ(back.failures, part.failures);
  ASSERT_TRUE(SplitJsonPart(FormatJsonPart(JsonPart{}), before, back));
  EXPECT_EQ(before, "");
  EXPECT_EQ(back.code, "-");
  for (const std::string& bad : {std::string(), std::string("-\n[]\n[]\n"), std::string("-\n[]\n[]\n[]"),
                                 std::string("x\n[]\n[]\n[]\n"), std::string("0\n[]\n{}\n[]\n")}) {
    EXPECT_FALSE(SplitJsonPart(bad, before, back)) << bad;
  }
}

TEST(JsonParts, ArraysJoinInOrder) {
  std::string all = "[]";
  for (const char* array : {"[]", "[1,2]", "[]", "[3]"}) AppendJsonArray(all, array);
  EXPECT_EQ(all, "[1,2,3]");
}

}  // namespace
}  // namespace tabulon::cli

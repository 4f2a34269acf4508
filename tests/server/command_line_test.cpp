// The real executable, started like from a console.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/server/support.h"
#include "util/win32.h"

namespace {

constexpr char kServiceName[] = "TamLogServer";
constexpr char kUsage[] =
    "To install : use the -install switch and run as administrator\n"
    "To remove : use the -remove switch and run as administrator\n";

std::string Executable() {
  return ExecutableFolder() + "\\TamLogServer.exe";
}

// The server's executable with its three streams connected to this process.
class ServerProgram {
 public:
  explicit ServerProgram(const std::string& arguments) {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    HANDLE inputEnd = nullptr;
    HANDLE outputEnd = nullptr;
    HANDLE errorEnd = nullptr;
    CreatePipe(&inputEnd, &input, &inherited, 0);
    CreatePipe(&output, &outputEnd, &inherited, 0);
    CreatePipe(&error, &errorEnd, &inherited, 0);
    for (HANDLE own : {input, output, error}) SetHandleInformation(own, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = inputEnd;
    startup.hStdOutput = outputEnd;
    startup.hStdError = errorEnd;
    std::string commandLine = '"' + Executable() + "\" " + arguments;
    PROCESS_INFORMATION started{};
    EXPECT_NE(CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                             &startup, &started),
              0)
        << "error " << GetLastError();
    CloseHandle(started.hThread);
    process = started.hProcess;
    for (HANDLE theirs : {inputEnd, outputEnd, errorEnd}) CloseHandle(theirs);
  }
  ~ServerProgram() {
    TerminateProcess(process, 99);
    for (HANDLE handle : {process, output, error}) CloseHandle(handle);
    CloseInput();
  }
  ServerProgram(const ServerProgram&) = delete;
  ServerProgram& operator=(const ServerProgram&) = delete;

  bool EndsWithin(std::uint32_t milliseconds) const {
    return WaitForSingleObject(process, milliseconds) == WAIT_OBJECT_0;
  }
  std::uint32_t ExitCode() const {
    DWORD code = 0;
    GetExitCodeProcess(process, &code);
    return code;
  }
  void Type(char character) {
    DWORD written = 0;
    WriteFile(input, &character, 1, &written, nullptr);
  }
  void CloseInput() {
    if (input != nullptr) CloseHandle(input);
    input = nullptr;
  }
  // Everything written so far (all of it, once the program has ended).
  std::string Output() { return Read(output, outputText); }
  std::string Errors() { return Read(error, errorText); }

 private:
  static std::string Read(HANDLE pipe, std::string& text) {
    DWORD available = 0;
    while (PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) != 0 && available > 0) {
      std::string part(available, '\0');
      DWORD got = 0;
      ReadFile(pipe, part.data(), available, &got, nullptr);
      text.append(part, 0, got);
    }
    return WithoutCarriageReturns(text);
  }

  HANDLE process = nullptr;
  HANDLE input = nullptr;
  HANDLE output = nullptr;
  HANDLE error = nullptr;
  std::string outputText;
  std::string errorText;
};

class CommandLine : public testing::Test {
 protected:
  CommandLine() : manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)) { DeleteRegistration(); }
  ~CommandLine() override {
    DeleteRegistration();
    CloseServiceHandle(manager);
    static_cast<void>(std::remove("TamLogServiceLog.txt"));
  }

  void DeleteRegistration() const {
    if (SC_HANDLE service = OpenServiceA(manager, kServiceName, SERVICE_ALL_ACCESS)) {
      DeleteService(service);
      CloseServiceHandle(service);
    }
  }
  bool IsInstalled() const {
    SC_HANDLE service = OpenServiceA(manager, kServiceName, SERVICE_QUERY_STATUS);
    if (service == nullptr) return false;
    CloseServiceHandle(service);
    return true;
  }

  SC_HANDLE manager;
};

void ExpectInstalls(const std::string& arguments) {
  ServerProgram program(arguments);
  ASSERT_TRUE(program.EndsWithin(20000));
  EXPECT_EQ(program.ExitCode(), 0U);
  EXPECT_EQ(program.Output(), "Installing service ... installed\n");
  EXPECT_EQ(program.Errors(), "");
}

TEST_F(CommandLine, InstallsInAnyLetterCaseWithDashOrSlash) {
  for (const char* argument : {"-install", "-INSTALL", "/Install"}) {
    ExpectInstalls(argument);
    EXPECT_TRUE(IsInstalled()) << argument;
    DeleteRegistration();
  }
}

TEST_F(CommandLine, ArgumentsAfterTheFirstAreIgnored) {
  ExpectInstalls("-install -remove whatever");
  EXPECT_TRUE(IsInstalled());
}

TEST_F(CommandLine, InstallRegistersTheIdentityOfTheService) {
  ExpectInstalls("-install");
  SC_HANDLE service = OpenServiceA(manager, kServiceName, SERVICE_ALL_ACCESS);
  ASSERT_NE(service, nullptr);
  alignas(QUERY_SERVICE_CONFIGA) char buffer[8192];
  DWORD needed = 0;
  auto* const configuration = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer);
  ASSERT_NE(QueryServiceConfigA(service, configuration, sizeof buffer, &needed), 0);
  EXPECT_STREQ(configuration->lpDisplayName, "Torvane Log Server");
  EXPECT_EQ(configuration->lpBinaryPathName, '"' + Executable() + '"');
  EXPECT_EQ(configuration->dwStartType, static_cast<DWORD>(SERVICE_AUTO_START));
  EXPECT_EQ(configuration->dwServiceType, static_cast<DWORD>(SERVICE_WIN32_OWN_PROCESS));
  ASSERT_NE(QueryServiceConfig2A(service, SERVICE_CONFIG_DESCRIPTION, reinterpret_cast<BYTE*>(buffer),
                                 sizeof buffer, &needed),
            0);
  EXPECT_STREQ(reinterpret_cast<SERVICE_DESCRIPTIONA*>(buffer)->lpDescription,
               "Collects messages produced by Brenmark VORTA Torvane software components");
  CloseServiceHandle(service);
}

TEST_F(CommandLine, RemovesInAnyLetterCaseWithDashOrSlash) {
  for (const char* argument : {"-remove", "/REMOVE"}) {
    ExpectInstalls("-install");
    ServerProgram program(argument);
    ASSERT_TRUE(program.EndsWithin(20000));
    EXPECT_EQ(program.ExitCode(), 0U);
    EXPECT_EQ(program.Output(), "Removing service ... removed\n");
    EXPECT_EQ(program.Errors(), "");
    EXPECT_FALSE(IsInstalled());
  }
}

TEST_F(CommandLine, WordWithoutDashIsUnrecognisedAndNoErrorExit) {
  ServerProgram program("install");
  ASSERT_TRUE(program.EndsWithin(20000));
  EXPECT_EQ(program.ExitCode(), 0U);
  EXPECT_EQ(program.Output(), "Unrecognized command line argument\nUse -install or -remove\n");
  EXPECT_EQ(program.Errors(), "");
  EXPECT_FALSE(IsInstalled());
}

void ExpectFailure(ServerProgram& program, const std::string& task, const std::string& failure) {
  const std::string expectedError = WithoutCarriageReturns("\nAn error has occured : \n" + failure + "\n\n");
  const std::string expectedOutput = task + kUsage;
  EXPECT_TRUE(WaitUntil([&] { return program.Output() == expectedOutput; }, 20000ms)) << program.Output();
  EXPECT_TRUE(WaitUntil([&] { return program.Errors() == expectedError; }, 5000ms)) << program.Errors();
}

TEST_F(CommandLine, FailedInstallShowsTheTextsAndWaitsForACharacter) {
  ExpectInstalls("-install");
  ServerProgram program("-install");
  ExpectFailure(program, "Installing service ...",
                "CreateService() failed" + ErrorSuffix(ERROR_SERVICE_EXISTS));
  EXPECT_FALSE(program.EndsWithin(700)) << "did not wait";
  program.Type('x');
  EXPECT_TRUE(program.EndsWithin(10000)) << "one character must suffice";
  EXPECT_EQ(program.ExitCode(), 1U);
}

TEST_F(CommandLine, FailedRemoveShowsTheTextsAndEndsWithItsInput) {
  ServerProgram program("-remove");
  ExpectFailure(program, "Removing service ...",
                "OpenService() failed" + ErrorSuffix(ERROR_SERVICE_DOES_NOT_EXIST));
  EXPECT_FALSE(program.EndsWithin(300)) << "did not wait";
  program.CloseInput();
  EXPECT_TRUE(program.EndsWithin(10000));
  EXPECT_EQ(program.ExitCode(), 1U);
}

TEST_F(CommandLine, ExecutableCarriesItsVersion) {
  DWORD ignored = 0;
  const DWORD size = GetFileVersionInfoSizeA(Executable().c_str(), &ignored);
  ASSERT_GT(size, 0U);
  std::string data(size, '\0');
  ASSERT_NE(GetFileVersionInfoA(Executable().c_str(), 0, size, data.data()), 0);
  void* name = nullptr;
  UINT length = 0;
  ASSERT_NE(VerQueryValueA(data.data(), "\\StringFileInfo\\040904E4\\ProductName", &name, &length), 0);
  EXPECT_STREQ(static_cast<const char*>(name), "Torvane Log Server");
}

}  // namespace

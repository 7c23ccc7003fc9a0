// The built program on p11-kit's proxy, run by an ordinary user whose module
// registry names the simulator, SoftHSM2 and p11-kit's trust store: rows
// from every module in one list.
#include "tests/e2e/ProgramRunner.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace EndToEnd {
namespace {

const uid_t kNobody = 65534;

TEST(AnyModuleTest, ProxyListsTheTokensOfEveryRegisteredModule)
{
    if (!HaveDisplay() || geteuid() != 0)
        GTEST_SKIP() << "needs an X display and root (to start the program as another user)";
    Sandbox sandbox;
    const std::string root = sandbox.Root(), modules = sandbox.Home() + "/.config/pkcs11/modules";
    std::filesystem::create_directories(modules);
    std::filesystem::create_directories(root + "/logs");
    int status = -1;
    TestSupport::RunCommand("sh " + TestSupport::SourceDir() + "/tests/support/make-softhsm-token.sh " + root + "/hsm",
                            status);
    ASSERT_EQ(status, 0);
    TestSupport::WriteText(modules + "/vessa.module", "module: " + BinaryDir() + "/sim/libVessaP11.so\n");
    TestSupport::WriteText(modules + "/softhsm2.module", "module: /usr/lib/softhsm/libsofthsm2.so\n");
    // The system registration keeps the trust store out of the proxy.
    TestSupport::WriteText(modules + "/p11-kit-trust.module", "module: p11-kit-trust.so\ndisable-in:\n");
    sandbox.WriteSettings("<vessa_Client><Trace><LogLevel>1</LogLevel><Filename>" + root +
                          "/logs</Filename></Trace><PKCS11Module>p11-kit-proxy.so</PKCS11Module></vessa_Client>");
    ProgramRunner program(sandbox);
    if (const char* xauthority = std::getenv("XAUTHORITY")) {
        std::filesystem::copy_file(xauthority, root + "/Xauthority");
        program.SetEnv("XAUTHORITY", root + "/Xauthority");
    }
    TestSupport::RunCommand("chown -R nobody " + root + " && chmod 755 " + root, status);
    ASSERT_EQ(status, 0);
    program.SetUser(kNobody, kNobody);
    program.SetEnv("SOFTHSM2_CONF", root + "/hsm/softhsm2.conf");
    program.SetEnv("VESSA_SIM_KEY_DIR", root + "/keys");
    program.SetEnv("VESSACARDS_EXIT_AFTER_REFRESH", "1");
    ASSERT_TRUE(program.Start());
    ASSERT_TRUE(program.WaitForExit(120)) << program.StandardError();

    const std::vector<std::string> files = TestSupport::FileNames(root + "/logs");
    ASSERT_EQ(files.size(), 1u) << program.StandardError();
    const std::string log = TestSupport::ReadText(root + "/logs/" + files[0]);
    for (const char* label : {"Testtoken", "System Trust", "vessa premium Signaturkarte"})
        EXPECT_NE(log.find(std::string("token label:  ") + label), std::string::npos) << label;
    // Every token found is a row: the six cards of the demo set (the blank
    // one too), the module's internal token, SoftHSM2's token (not its free
    // slot) and the trust store; none fails to open.
    EXPECT_NE(program.StandardError().find(" rows=9 "), std::string::npos) << program.StandardError() << log;
    EXPECT_EQ(log.find("ERROR"), std::string::npos) << log;
    EXPECT_NE(log.find("entry points from the module's function table"), std::string::npos);
}

} // namespace
} // namespace EndToEnd

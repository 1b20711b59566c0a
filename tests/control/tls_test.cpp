// TCP with mutual TLS, with certificates made by the very commands that the refusal tells.
#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

#include "node/control/certificates.h"
#include "node/ctl/commands.h"
#include "tests/control/server_fixture.h"

namespace node::control {
namespace {

using grpc::StatusCode;
using testing::HasSubstr;

std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Runs the indented lines of the explanation in a directory.
class MadeCertificates {
public:
    explicit MadeCertificates(const ScratchDirectory& scratch, const std::string& name)
        : directory_(scratch.file(name)) {
        std::filesystem::create_directory(directory_);
        std::ofstream script(path("make.sh"));
        std::istringstream text(howToMakeCertificates);
        for (std::string line; std::getline(text, line);) {
            if (line.starts_with("  ")) {
                script << line << '\n';
            }
        }
        script.close();
        const std::string command = "cd " + directory_ + " && sh -e make.sh >make.log 2>&1";
        if (std::system(command.c_str()) != 0) {
            throw std::runtime_error(contentsOf(path("make.log")));
        }
    }
    std::string path(const std::string& file) const { return directory_ + "/" + file; }
    CertificateFiles server() const { return {path("node.crt"), path("node.key"), path("ca.crt")}; }
    std::shared_ptr<grpc::ChannelCredentials> client(const MadeCertificates& trusts) const {
        return credentials(contentsOf(trusts.path("ca.crt")), contentsOf(path("operator.key")),
                           contentsOf(path("operator.crt")));
    }
    std::shared_ptr<grpc::ChannelCredentials> stranger() const {
        return credentials(contentsOf(path("ca.crt")), "", "");
    }

private:
    static std::shared_ptr<grpc::ChannelCredentials> credentials(const std::string& ca,
                                                                 const std::string& key,
                                                                 const std::string& certificate) {
        grpc::SslCredentialsOptions options;
        options.pem_root_certs = ca;
        options.pem_private_key = key;
        options.pem_cert_chain = certificate;
        return grpc::SslCredentials(options);
    }

    std::string directory_;
};

class TlsTest : public ServerTest {
protected:
    TlsTest() : ours(scratch, "ours") {
        options.tcp = {.address = "127.0.0.1:0", .files = ours.server()};
    }
    StatusCode ask(const std::shared_ptr<grpc::ChannelCredentials>& credentials) {
        const auto stub = v1::Management::NewStub(
            channelTo("127.0.0.1:" + std::to_string(server->tcpPort()), credentials));
        v1::NodeInfoResponse info;
        return call(*stub, &v1::Management::Stub::NodeInfo, v1::NodeInfoRequest(), info)
            .error_code();
    }
    std::string startProblem() {
        try {
            start();
        } catch (const ServerError& error) {
            return error.what();
        }
        return "none";
    }

    MadeCertificates ours;
};

TEST_F(TlsTest, ClientWithACertificateOfTheCaIsServedOnTcpAndTheSocketStays) {
    start();
    EXPECT_EQ(StatusCode::OK, ask(ours.client(ours)));
    const auto stub = client();
    v1::NodeInfoResponse info;
    EXPECT_TRUE(call(*stub, &v1::Management::Stub::NodeInfo, v1::NodeInfoRequest(), info).ok());
}

TEST_F(TlsTest, TcpAloneIsEnough) {
    options.socketPath.clear();
    start();
    EXPECT_EQ(StatusCode::OK, ask(ours.client(ours)));
}

TEST_F(TlsTest, EverybodyElseIsTurnedAwayAndTheServerGoesOn) {
    const MadeCertificates others(scratch, "others");
    start();
    EXPECT_EQ(StatusCode::UNAVAILABLE, ask(ours.stranger())) << "no certificate";
    EXPECT_EQ(StatusCode::UNAVAILABLE, ask(others.client(ours))) << "of another CA";
    EXPECT_EQ(StatusCode::UNAVAILABLE, ask(ours.client(others))) << "the client trusts another CA";
    EXPECT_EQ(StatusCode::UNAVAILABLE, ask(grpc::InsecureChannelCredentials())) << "no TLS";
    EXPECT_EQ(StatusCode::OK, ask(ours.client(ours)));
}

TEST_F(TlsTest, IncompleteOrWrongFilesAreRefusedAtTheStartWithTheWayOut) {
    const std::string garbage = scratch.file("garbage.pem");
    std::ofstream(garbage) << "not a certificate\n";
    const MadeCertificates others(scratch, "others");
    const CertificateFiles good = ours.server();
    const std::pair<CertificateFiles, const char*> cases[] = {
        {{"", good.key, good.clientCa}, "no server certificate is configured"},
        {{good.certificate, "", good.clientCa}, "no server key is configured"},
        {{good.certificate, good.key, ""}, "no client CA is configured"},
        {{"/no/such.crt", good.key, good.clientCa}, "the server certificate /no/such.crt cannot"},
        {{good.certificate, "/no/such.key", good.clientCa}, "the server key /no/such.key cannot"},
        {{garbage, good.key, good.clientCa}, "is no PEM certificate"},
        {{good.certificate, garbage, good.clientCa}, "is no PEM key"},
        {{good.certificate, good.key, garbage}, "the client CA"},
        {{good.certificate, others.path("node.key"), good.clientCa}, "does not belong to"},
    };
    for (const auto& [files, words] : cases) {
        options.tcp->files = files;
        const std::string problem = startProblem();
        EXPECT_THAT(problem, HasSubstr(words));
        EXPECT_THAT(problem, HasSubstr("openssl req -x509"));
        EXPECT_FALSE(std::filesystem::exists(options.socketPath));
    }
}

TEST_F(TlsTest, TalctlShowsItsCertificateAndAWrongOneIsUnreachable) {
    const MadeCertificates others(scratch, "others");
    start();
    const auto talctl = [&](const MadeCertificates& shown) {
        std::ostringstream out;
        std::ostringstream err;
        return ctl::run({"--server", "127.0.0.1:" + std::to_string(server->tcpPort()), "--ca",
                         ours.path("ca.crt"), "--cert", shown.path("operator.crt"), "--key",
                         shown.path("operator.key"), "status"},
                        out, err);
    };
    EXPECT_EQ(0, talctl(ours));
    EXPECT_EQ(3, talctl(others));
    EXPECT_EQ(0, talctl(ours));
}

TEST_F(TlsTest, KeyWithAPassphraseIsRefusedInsteadOfAskingForIt) {
    const std::string locked = scratch.file("locked.key");
    const std::string command = "openssl pkey -aes128 -passout pass:secret -in " +
                                ours.path("node.key") + " -out " + locked;
    ASSERT_EQ(0, std::system(command.c_str()));
    options.tcp->files.key = locked;
    EXPECT_THAT(startProblem(), HasSubstr("without a passphrase"));
}

}  // namespace
}  // namespace node::control

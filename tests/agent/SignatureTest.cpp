#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>

#include "agent/trust/BundleManifest.h"
#include "agent/trust/Signature.h"
#include "base/SystemRoot.h"
#include "collaborators/FileSignVerifier.h"
#include "support/SigningKey.h"
#include "support/TempDir.h"

namespace zelor::agent {
namespace {

namespace fs = boost::filesystem;
using test::readFile;
using test::SigningKey;
using test::TempDir;
using test::writeFile;
using testing::HasSubstr;

std::string certificateOf(const SigningKey& key) {
    const std::unique_ptr<X509, void (*)(X509*)> x509(X509_new(), X509_free);
    X509_gmtime_adj(X509_getm_notBefore(x509.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(x509.get()), 3600);
    X509_set_pubkey(x509.get(), key.get());
    X509_sign(x509.get(), key.get(), EVP_sha256());
    const std::unique_ptr<BIO, int (*)(BIO*)> bio(BIO_new(BIO_s_mem()), BIO_free);
    PEM_write_bio_X509(bio.get(), x509.get());
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

/// What an author publishes: a patch and its signature by an RSA key.
struct SignatureTest : testing::Test {
    TempDir dir;
    SigningKey rsa = SigningKey::rsa();
    std::string patch = dir / "editor.pkg", signatureFile = dir / "editor.sig", keyFile = dir / "key.pem";
    std::string content = std::string(3U << 20U, 'p') + "end";

    SignatureTest() {
        writeFile(patch, content);
        writeFile(signatureFile, rsa.sign(content));
        writeFile(keyFile, rsa.publicPem());
    }
    SignatureVerdict verdict() { return verifyPath(patch, signatureFile, keyFile); }
};

TEST_F(SignatureTest, AcceptsRsaAndEcKeysAndCertificates) {
    EXPECT_TRUE(verdict().good) << verdict().reason;
    writeFile(keyFile, certificateOf(rsa));
    EXPECT_TRUE(verdict().good) << verdict().reason;
    for (const int curve : {NID_X9_62_prime256v1, NID_secp384r1}) {
        const SigningKey ec = SigningKey::ec(curve);
        writeFile(keyFile, ec.publicPem());
        writeFile(signatureFile, ec.sign(content));
        EXPECT_TRUE(verdict().good) << verdict().reason;
        EXPECT_TRUE(verifyBytes(content, ec.sign(content), keyFile).good);
        EXPECT_FALSE(verifyBytes(content + " ", ec.sign(content), keyFile).good);
    }
}

TEST_F(SignatureTest, RefusesEverythingElseWithAReason) {
    struct Case {
        const char* name;
        std::function<void()> spoil;
        const char* reason;
    };
    const std::string good = readFile(signatureFile);
    const auto useKey = [&](const SigningKey& key) {
        writeFile(keyFile, key.publicPem());
        writeFile(signatureFile, key.sign(content));
    };
    const Case cases[] = {
        {"another key", [&] { writeFile(keyFile, SigningKey::rsa().publicPem()); }, "does not match"},
        {"key of another kind", [&] { writeFile(keyFile, SigningKey::ec().publicPem()); }, "does not match"},
        {"changed byte", [&] { writeFile(patch, content + "."); }, "does not match"},
        {"another file's signature", [&] { writeFile(signatureFile, rsa.sign("other")); }, "does not match"},
        {"truncated signature", [&] { writeFile(signatureFile, good.substr(0, 100)); }, "does not match"},
        {"longer signature", [&] { writeFile(signatureFile, good + '\0'); }, "does not match"},
        {"empty signature", [&] { writeFile(signatureFile, ""); }, "empty"},
        {"huge signature", [&] { writeFile(signatureFile, std::string(20000, 's')); }, "larger"},
        {"no signature", [&] { fs::remove(signatureFile); }, "editor.sig"},
        {"linked signature",
         [&] { fs::rename(signatureFile, dir / "s"), fs::create_symlink("s", signatureFile); }, "editor.sig"},
        {"no patch", [&] { fs::remove(patch); }, "editor.pkg"},
        {"linked patch", [&] { fs::rename(patch, dir / "p"), fs::create_symlink("p", patch); }, "editor.pkg"},
        {"patch is a FIFO", [&] { fs::remove(patch), mkfifo(patch.c_str(), 0600); }, "not a regular file"},
        {"no key", [&] { fs::remove(keyFile); }, "key.pem"},
        {"not a key", [&] { writeFile(keyFile, "rubbish"); }, "neither a PEM public key"},
        {"private key", [&] { writeFile(keyFile, rsa.privatePem()); }, "neither a PEM public key"},
        {"short RSA key", [&] { useKey(SigningKey::rsa(1024)); }, "1024 bits"},
        {"short EC key", [&] { useKey(SigningKey::ec(NID_X9_62_prime192v1)); }, "192 bits"},
        {"open key", [&] { chmod(keyFile.c_str(), 0666); }, "everybody can write"},
        {"key of an unknown kind", [&] { writeFile(keyFile, SigningKey::ed25519().publicPem()); },
         "neither RSA"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        for (const std::string& path : {patch, signatureFile, keyFile})
            fs::remove(path);
        writeFile(patch, content);
        writeFile(signatureFile, good);
        writeFile(keyFile, rsa.publicPem());
        c.spoil();
        EXPECT_FALSE(verdict().good);
        EXPECT_THAT(verdict().reason, HasSubstr(c.reason));
    }
}

struct BundleTest : SignatureTest {
    std::string bundle = dir / "Editor.app";
    BundleTest() {
        writeFile(bundle + "/Contents/MacOS/editor", "program");
        writeFile(bundle + "/Contents/Info.plist", "plist");
        writeFile(bundle + "/Contents-old", "x");
        fs::create_symlink("MacOS/editor", bundle + "/Contents/Current");
        for (const char* directory : {"", "/Contents", "/Contents/MacOS"})
            chmod((bundle + directory).c_str(), 0755);
        chmod((bundle + "/Contents/MacOS/editor").c_str(), 0755);
        chmod((bundle + "/Contents/Info.plist").c_str(), 0644);
        chmod((bundle + "/Contents-old").c_str(), 0600);
    }
};

TEST_F(BundleTest, TheManifestListsEveryEntryInByteOrder) {
    const std::string expected =
        ") zelor-bundle-manifest 2\n"
        "folder 0755 .\n"
        "folder 0755 Contents\n"
        "file 0600 1 2d711642b726b04401627ca9fbac32f5c8530fb1903cc4db02258717921a4881 Contents-old\n"
        "link MacOS/editor Contents/Current\n"
        "file 0644 5 @PLIST@ Contents/Info.plist\n"
        "folder 0755 Contents/MacOS\n"
        "file 0755 7 @PROGRAM@ Contents/MacOS/editor\n";
    std::string manifest = bundleManifest(bundle + "/");
    // Another test checks the digests of the other two files with the openssl command.
    manifest.replace(manifest.find("file 0644 5 ") + 12, 64, "@PLIST@");
    manifest.replace(manifest.find("file 0755 7 ") + 12, 64, "@PROGRAM@");
    EXPECT_EQ(manifest, expected);
}

TEST_F(BundleTest, HostileNamesCannotForgeLines) {
    fs::remove_all(bundle);
    writeFile(bundle + "/a\nfolder 0755 b", "");
    writeFile(bundle + "/back\\slash \xc3\xa9", "");
    fs::create_symlink("t\n x", bundle + "/l");
    const std::string manifest = bundleManifest(bundle);
    EXPECT_THAT(manifest, HasSubstr(" a\\x0afolder\\x200755\\x20b\n"));
    EXPECT_THAT(manifest, HasSubstr(" back\\x5cslash\\x20\\xc3\\xa9\n"));
    EXPECT_THAT(manifest, HasSubstr("link t\\x0a\\x20x l\n"));
}

TEST_F(BundleTest, ASignedBundleIsValidUntilAnythingChanges) {
    const std::string inner = bundle + "/Contents/MacOS/editor", link = bundle + "/Contents/Current";
    struct Case {
        const char* name;
        std::function<void()> change, undo;
    };
    const Case cases[] = {
        {"a byte", [&] { writeFile(inner, "Program"); }, [&] { writeFile(inner, "program"); }},
        {"an added file", [&] { writeFile(bundle + "/n", ""); }, [&] { fs::remove(bundle + "/n"); }},
        {"an added directory", [&] { fs::create_directory(bundle + "/n"); },
         [&] { fs::remove(bundle + "/n"); }},
        {"a mode", [&] { chmod(inner.c_str(), 0777); }, [&] { chmod(inner.c_str(), 0755); }},
        {"its own mode", [&] { chmod(bundle.c_str(), 0777); }, [&] { chmod(bundle.c_str(), 0755); }},
        {"a set-user-id bit", [&] { chmod(inner.c_str(), 04755); }, [&] { chmod(inner.c_str(), 0755); }},
        {"a link's target", [&] { fs::remove(link), fs::create_symlink("/bin/sh", link); },
         [&] { fs::remove(link), fs::create_symlink("MacOS/editor", link); }},
        {"a file become a link",
         [&] { fs::rename(inner, dir / "away"), fs::create_symlink(dir / "away", inner); },
         [&] { fs::remove(inner), fs::rename(dir / "away", inner); }},
        {"a name", [&] { fs::rename(inner, inner + "2"); }, [&] { fs::rename(inner + "2", inner); }},
        {"a FIFO", [&] { mkfifo((bundle + "/f").c_str(), 0600); }, [&] { fs::remove(bundle + "/f"); }},
    };
    writeFile(signatureFile, rsa.sign(bundleManifest(bundle)));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_TRUE(verifyPath(bundle, signatureFile, keyFile).good);
        c.change();
        const SignatureVerdict verdict = verifyPath(bundle, signatureFile, keyFile);
        EXPECT_FALSE(verdict.good);
        EXPECT_FALSE(verdict.reason.empty());
        c.undo();
    }
    EXPECT_TRUE(verifyPath(bundle, signatureFile, keyFile).good);
}

TEST_F(BundleTest, NoShellRunsALineOfAManifest) {
    writeFile(bundle + "/AT&T$(touch x).txt", "");
    writeFile(bundle + "/;touch${IFS}x;", "");
    const std::string script = dir / "script.sh", current = bundleManifest(bundle);
    writeFile(script, current);
    for (const char* shell : {"/bin/bash", "/bin/bash --posix", "/bin/sh"}) {
        const std::string command =
            "cd '" + dir.path().string() + "' && " + shell + " script.sh 2>/dev/null >/dev/null";
        EXPECT_NE(std::system(command.c_str()), 0) << shell;
        EXPECT_FALSE(fs::exists(dir / "x")) << shell;
    }
    const std::string earlier =
        std::string(kEarlierManifestFirstLine) + current.substr(kManifestFirstLine.size());
    for (const std::string& manifest : {current, earlier}) {
        writeFile(script, manifest);
        writeFile(signatureFile, rsa.sign(manifest));
        const SignatureVerdict asBundle = verifyPath(bundle, signatureFile, keyFile);
        EXPECT_TRUE(asBundle.good) << asBundle.reason;
        EXPECT_EQ(asBundle.digest.length, manifest.size());
        EXPECT_THAT(verifyPath(script, signatureFile, keyFile).reason, HasSubstr("manifest of a bundle"));
    }
}

TEST_F(SignatureTest, TheVerifierUsesTheTrustedKeyAndLogsTheReason) {
    setSystemRoot(dir.path().string());
    const auto verify = [&] {
        FileSignVerifier verifier;
        verifier.SetFileName(patch);
        verifier.SetSigFileName(signatureFile);
        return verifier.verify();
    };
    writeFile(dir / "etc/zelor/zelor.ini", "[Repository]\nTrustedKey = /key.pem\n");
    EXPECT_NE(verify(), 0);
    EXPECT_EQ(readFile(dir / "var/log/zelor/remediation.log"), "");
    writeFile(patch, "changed");
    EXPECT_EQ(verify(), 0);
    EXPECT_THAT(readFile(dir / "var/log/zelor/remediation.log"), HasSubstr("[FileSignVerifier] " + patch));
    writeFile(patch, content);
    writeFile(dir / "etc/zelor/zelor.ini", "");
    EXPECT_EQ(verify(), 0);
    EXPECT_THAT(readFile(dir / "var/log/zelor/remediation.log"), HasSubstr("set TrustedKey"));
    EXPECT_EQ(FileSignVerifier().verify(), 0);
}

TEST_F(BundleTest, AgreesWithTheOpensslCommand) {
    const auto shell = [&](const std::string& command) {
        return std::system(("cd '" + dir.path().string() + "' && " + command + " >/dev/null 2>&1").c_str());
    };
    if (shell("openssl version") != 0) GTEST_SKIP() << "the openssl command is not installed";
    writeFile(dir / "private.pem", rsa.privatePem());
    writeFile(dir / "manifest", bundleManifest(bundle));
    ASSERT_EQ(shell("openssl dgst -sha256 -sign private.pem -out editor.sig editor.pkg"), 0);
    EXPECT_TRUE(verdict().good) << verdict().reason;
    ASSERT_EQ(shell("openssl dgst -sha256 -sign private.pem -out bundle.sig manifest"), 0);
    EXPECT_TRUE(verifyPath(bundle, dir / "bundle.sig", keyFile).good);
    writeFile(signatureFile, rsa.sign(content));
    EXPECT_EQ(shell("openssl dgst -sha256 -verify key.pem -signature editor.sig editor.pkg"), 0);
    for (const char* file : {"Contents/MacOS/editor", "Contents/Info.plist"}) {
        EXPECT_EQ(shell("grep \" $(openssl dgst -sha256 -r Editor.app/" + std::string(file) +
                        " | cut -c1-64) " + file + "$\" manifest"),
                  0);
    }
}

}  // namespace
}  // namespace zelor::agent

class Duskwell < Formula
  desc "Keeps your Mac awake while AI coding agents work"
  homepage "https://duskwell.app"
  url "https://duskwell.app/releases/duskwell-0.1.0.tar.gz"
  sha256 "REPLACE_WITH_THE_SHA256_OF_THE_RELEASE_TARBALL"
  license "MIT"

  depends_on "cmake" => :build
  depends_on "ninja" => :build
  depends_on "nlohmann-json" => :build
  depends_on macos: :ventura

  def install
    system "cmake", "-S", ".", "-B", "build", "-G", "Ninja",
           "-DDUSKWELL_TESTS=OFF", "-DDUSKWELL_SIGN_IDENTITY=-", *std_cmake_args
    system "cmake", "--build", "build"

    prefix.install "build/Duskwell.app"
    bin.install_symlink prefix/"Duskwell.app/Contents/Resources/duskwell-cli" => "duskwell"

    man1.install "packaging/man/duskwell.1"
    bash_completion.install "packaging/completions/duskwell.bash" => "duskwell"
    zsh_completion.install "packaging/completions/_duskwell"
    fish_completion.install "packaging/completions/duskwell.fish"
  end

  def caveats
    <<~EOS
      Duskwell is a menu-bar app. Open it with:
        open #{opt_prefix}/Duskwell.app
      or link it into Applications:
        ln -sf #{opt_prefix}/Duskwell.app /Applications/Duskwell.app
      The first keep-awake period asks once for the administrator password to install
      the power helper in /Library/PrivilegedHelperTools.
    EOS
  end

  test do
    assert_match "duskwell #{version}", shell_output("#{bin}/duskwell --version")
    assert_match "usage: duskwell", shell_output("#{bin}/duskwell --help")
    assert_path_exists prefix/"Duskwell.app/Contents/Resources/duskwell-hook"
    assert_path_exists prefix/"Duskwell.app/Contents/Resources/duskwell-power"
    system "codesign", "--verify", "--deep", "--strict", prefix/"Duskwell.app"
  end
end

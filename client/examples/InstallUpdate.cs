// InstallUpdate BUNDLE, for C#: csc /platform:x64 InstallUpdate.cs, with the DLL beside the program.
using System;
using System.Runtime.InteropServices;
using System.Text;

[assembly: DefaultDllImportSearchPaths(DllImportSearchPath.AssemblyDirectory)]

static class InstallUpdate {
  [StructLayout(LayoutKind.Sequential)]
  struct Options { public uint Size, Flags, TimeLimitMs, RestartLimitMs; public IntPtr CancelEvent; }

  [StructLayout(LayoutKind.Sequential)]
  struct Answer { public uint Size; public int Status, InstallerExitCode; public uint RpcStatus, Restart; }

  [DllImport("ZarnUpdateClient.dll", CharSet = CharSet.Unicode, ExactSpelling = true)]
  static extern int zarn_update_install(string bundle, ref Options options, ref Answer answer);
  [DllImport("ZarnUpdateClient.dll", CharSet = CharSet.Unicode, ExactSpelling = true)]
  static extern int zarn_update_describe_status(int status, StringBuilder text, uint units);
  [DllImport("ZarnUpdateClient.dll", CharSet = CharSet.Unicode, ExactSpelling = true)]
  static extern int zarn_update_describe_result(int result, StringBuilder text, uint units);

  static int Main(string[] arguments) {
    var options = new Options { Size = (uint)Marshal.SizeOf(typeof(Options)), Flags = 1, TimeLimitMs = 3600000 };
    var answer = new Answer { Size = (uint)Marshal.SizeOf(typeof(Answer)) };
    var words = new StringBuilder(512);
    int result = zarn_update_install(arguments.Length == 1 ? arguments[0] : "", ref options, ref answer);
    if (result != 0) {
      zarn_update_describe_result(result, words, 512);
      Console.WriteLine("no answer: " + words);
      return result == 7 || result == 8 || result == 12 ? 2 : 1;  // 2: nobody knows what was done
    }
    zarn_update_describe_status(answer.Status, words, 512);
    Console.WriteLine("status " + answer.Status + ", " + words);
    return answer.Status == 0 || answer.Status == 30000 || answer.Status == 30001 ? 0 : 1;
  }
}

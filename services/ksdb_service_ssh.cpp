// The SSH daemon's service file: sshd_config from its template.
#define KSDB_MODULE "ksdb_service_ssh"
#include "services/ksdb_service.h"

#include "core/ksdb_areas.h"

namespace ksdb::service {
namespace {

constexpr char kSshdConfig[] = "/etc/ssh/sshd_config";

// sshd_config.  The port stays 22 whatever service_ssh says: the port,
// ui_enabled, remote_enabled and remote_port columns are for the web
// interface and the remote-access relay, not for this file.  Only the
// password switch comes from the database, as the word "yes" or "no", so
// no stored text ever reaches the file.  Before service_ssh has its row the
// switch reads as the column's default (on): an empty argument would make
// sshd refuse the whole file.
const char *const kSshdTemplate[] = {
    "# Do not edit.\n",
    "Protocol 2\n",
    "Port 22\n",
    "#ListenAddress ::\n",
    "#ListenAddress 0.0.0.0\n",
    "# HostKeys for protocol version 2\n",
    "HostKey /etc/ssh/ssh_host_rsa_key\n",
    "HostKey /etc/ssh/ssh_host_dsa_key\n",
    "HostKey /etc/ssh/ssh_host_ecdsa_key\n",
    "# Privilege Separation is turned on for security\n",
    "UsePrivilegeSeparation yes\n",
    "\n",
    "# Lifetime and size of ephemeral version 1 server key\n",
    "KeyRegenerationInterval 3600\n",
    "ServerKeyBits 1024\n",
    "\n",
    "# Logging\n",
    "SyslogFacility AUTH\n",
    "LogLevel INFO\n",
    "\n",
    "# Authentication:\n",
    "LoginGraceTime 120\n",
    "PermitRootLogin yes\n",
    "StrictModes yes\n",
    "RSAAuthentication yes\n",
    "PubkeyAuthentication yes\n",
    "AuthorizedKeysFile %h/.ssh/authorized_keys %h/.ssh/ssh_authorized_keys\n",
    "\n",
    "# Don't read the user's ~/.rhosts and ~/.shosts files\n",
    "IgnoreRhosts yes\n",
    "# For this to work you will also need host keys in /etc/ssh_known_hosts\n",
    "RhostsRSAAuthentication no\n",
    "# similar for protocol version 2\n",
    "HostbasedAuthentication no\n",
    "# Uncomment if you don't trust ~/.ssh/known_hosts for RhostsRSAAuthentication\n",
    "#IgnoreUserKnownHosts yes\n",
    "\n",
    "# To enable empty passwords, change to yes (NOT RECOMMENDED)\n",
    "PermitEmptyPasswords no\n",
    "\n",
    "# Change to yes to enable challenge-response passwords (beware issues with\n",
    "# some PAM modules and threads)\n",
    "ChallengeResponseAuthentication no\n",
    "\n",
    "# Change to no to disable tunnelled clear text passwords\n",
    "PasswordAuthentication {SQL{SELECT CASE WHEN IFNULL(password_authentication,1)=1 THEN 'yes' ELSE 'no' END FROM (SELECT 1) LEFT JOIN service_ssh}}\n",
    "\n",
    "# Kerberos options\n",
    "#KerberosAuthentication no\n",
    "#KerberosGetAFSToken no\n",
    "#KerberosOrLocalPasswd yes\n",
    "#KerberosTicketCleanup yes\n",
    "\n",
    "# GSSAPI options\n",
    "#GSSAPIAuthentication no\n",
    "#GSSAPICleanupCredentials yes\n",
    "\n",
    "X11Forwarding yes\n",
    "X11DisplayOffset 10\n",
    "PrintMotd no\n",
    "PrintLastLog yes\n",
    "TCPKeepAlive yes\n",
    "#UseLogin no\n",
    "\n",
    "#MaxStartups 10:30:60\n",
    "#Banner /etc/issue.net\n",
    "# Allow client to pass locale environment variables\n",
    "AcceptEnv LANG LC_*\n",
    "\n",
    "Subsystem sftp /usr/lib/openssh/sftp-server\n",
    "\n",
    "UsePAM yes\n",
    nullptr,
};

}  // namespace
}  // namespace ksdb::service

KSDB_STEP(ksdb_ssh_service_export) {
    return ksdb::write_template_file(h, db, ksdb::service::kSshdConfig,
                                     ksdb::service::kSshdTemplate);
}

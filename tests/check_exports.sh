#!/bin/sh
# The shared library exports the C interface and nothing else.
set -eu
lib=$1
allowed='^(ksdb_[A-Za-z0-9_]+|_ksdb_account_[a-z_]+|ads_log|TABLE_SMB_USERNAME_MAP|TABLE_SMB_USERNAME_MAP_TYPE_HASH|TABLE_SMB_USERNAME_MAP_TYPE_UNAME|skip_space|skip_to_chars|split|splitchr|splitstr|split_to_array|escape_for_shell|unescape_for_shell|ini_parse_file|KSDB_0)$'
symbols=$(nm -D --defined-only "$lib" | awk '{print $3}' | sed 's/@.*//' | sort -u)
unexpected=$(printf '%s\n' "$symbols" | grep -Ev "$allowed" || true)
if [ -n "$unexpected" ]; then
    echo "unexpected exported symbols:" >&2
    printf '%s\n' "$unexpected" >&2
    exit 1
fi
for required in ksdb_initialize ksdb_initialize_old ksdb_log ads_log ksdb_sql_exec \
        ksdb_sql_get_int64_mprintf ksdb_sql_compare_table TABLE_SMB_USERNAME_MAP \
        TABLE_SMB_USERNAME_MAP_TYPE_HASH TABLE_SMB_USERNAME_MAP_TYPE_UNAME \
        ksdb_valid_smb_username_map_type ksdb_is_service_ssh_enabled \
        ksdb_account_export _ksdb_account_local_user_import _ksdb_account_local_group_export; do
    printf '%s\n' "$symbols" | grep -qx "$required" || { echo "missing export $required" >&2; exit 1; }
done
echo "exports ok ($(printf '%s\n' "$symbols" | wc -l) symbols)"

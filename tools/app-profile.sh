# What an app folder's service profile declares, read with the shell's own
# tools (sourced by tools/pair-run.sh). The profile is the file that
# config.xml's last AccessoryServicesLocation names.

# The app's service-profile file, or nothing.
app_profile_file() {
    local folder="$1" location
    location="$(grep -o '<metadata[^>]*key="AccessoryServicesLocation"[^>]*>' "$folder/config.xml" |
        grep -o 'value="[^"]*"' | tail -n 1 | cut -d'"' -f2)"
    [ -z "$location" ] || [ ! -f "$folder/$location" ] || echo "$folder/$location"
}

# Whether the app's profile declares a provider.
app_declares_provider() {
    local file
    file="$(app_profile_file "$1")"
    [ -n "$file" ] && grep -qiE 'role[[:space:]]*=[[:space:]]*"provider"' "$file"
}

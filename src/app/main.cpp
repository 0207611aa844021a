// Entry point; the modes are wired in Entry.
int main()
{
    return 0;
}

/* A text library without any entry point. */
int ravelin_nothing_here;
